# Completion of vintak and vintakd for bash.

# The options of every command; those that take a file or a folder stand in _vintak_paths, others that take a value in
# _vintak_values.
declare -gA _vintak_options=(
    [convert]="-h --help --segment -o --output -c --cache --mask --frame --no-cache --no-optimize --packed --jobs --parts --files-from -0 --null --json --skip-existing --move-failed"
    [spool]="-h --help --segment -o --output --mask --no-optimize --jobs --settle --tries --delete-done --sync --until-empty --health --late --run --submit --broker --user --password-file --ca --cert --key --queue"
    [backfill]="-h --help --segment --ledger -o --output --mask --packed --no-optimize --sync --files-from -0 --null --all --relist --shard --study-depth --jobs --batch --tries --rate --hours --dry-run --sample --class --json --low-water --patience --broker --user --password-file --ca --cert --key --queue"
    [submit]="-h --help --segment --files-from -0 --null --broker --user --password-file --ca --cert --key --queue"
    [work]="-h --help --segment -o --output --mask --no-optimize --sync --jobs --ahead --tries --inputs --submitted --name --broker-timeout --until-empty --health --run --broker --user --password-file --ca --cert --key --queue"
    [dump]="-h --help --segment --long --escape"
    [query]="-h --help --segment -t --tag --once --json"
    [ping]="-h --help --segment -n --count"
    [view]="-h --help --segment --no-open --port --export"
    [show]="-h --help --desc -o --output --reduce"
    [info]="-h --help --desc --syntaxes"
    [pack]="-h --help --segment -o --output --durable --as-given --files-from -0 --null"
    [unpack]="-h --help --segment -o --output"
    [verify]="-h --help --segment"
    [status]="-h --help --segment --dump"
    [health]="-h --help --segment --json --run"
    [metrics]="-h --help --segment --run"
    [check-config]="-h --help --segment"
    [trace]="-h --help --segment"
)
_vintakd_options="--help --servers --syslog --debug"
_vintak_paths=" -o --output -c --cache --files-from --move-failed --export --desc --run --inputs --submitted --password-file --ca --cert --key --ledger "
_vintak_values=" --segment --mask --frame --jobs --ahead --settle --tries --late -t --tag --once -n --count --port --reduce --servers --name --broker-timeout --broker --user --queue --shard --study-depth --batch --rate --hours --sample --class --low-water --patience "

_vintak_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_vintak() {
    local current=${COMP_WORDS[COMP_CWORD]} before="" command=${COMP_WORDS[1]}
    (( COMP_CWORD > 0 )) && before=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    if (( COMP_CWORD == 1 )); then
        mapfile -t COMPREPLY < <(compgen -W "${!_vintak_options[*]} --help --version" -- "$current")
    elif [[ $_vintak_values == *" $before "* ]]; then
        return
    elif [[ $_vintak_paths == *" $before "* ]]; then
        _vintak_files "$current"
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${_vintak_options[$command]}" -- "$current")
    elif [[ $command == trace ]]; then
        mapfile -t COMPREPLY < <(compgen -W "on off show" -- "$current")
    elif [[ $command == backfill ]] && (( COMP_CWORD == 2 )); then
        mapfile -t COMPREPLY < <(compgen -W "run status failures retry pause resume check" -- "$current")
    else
        _vintak_files "$current"
    fi
}

_vintakd() {
    COMPREPLY=()
    [[ ${COMP_WORDS[COMP_CWORD - 1]} == --servers ]] ||
        mapfile -t COMPREPLY < <(compgen -W "$_vintakd_options" -- "${COMP_WORDS[COMP_CWORD]}")
}

complete -F _vintak vintak
complete -F _vintakd vintakd
