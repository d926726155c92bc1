// The plain C interface of vintakd.h over the calls of vintakd_if.h.
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "hsutils/ClassedError.h"
#include "vintakd/folderidentity.h"
#include "vintakd/vintakd.h"
#include "vintakd/vintakd_if.h"

struct vintakd_client {
    Gateway gateway;
};

struct vintakd_answer {
    std::string text;
    std::string characterSet;
    std::vector<std::string> warnings;
    std::vector<std::string> values;
};

namespace {

/// What the C++ call takes.
struct Words {
    std::string input{};
    std::string output{};
    std::string cache{};
    bool verbose = false;
    bool dumponly = true;
    bool escape = false;
    bool optimize = true;
    bool noCached = false;
    int mask = 0;
    int frame = 0;
    float streamParameter = 0;
    std::vector<unsigned short> tags{};
};

int statusOf(ErrorClass kind) {
    switch (kind) {
        case ErrorClass::request:
            return VINTAKD_REQUEST;
        case ErrorClass::file:
            return VINTAKD_FILE;
        case ErrorClass::object:
            return VINTAKD_OBJECT;
        case ErrorClass::unsupported:
            return VINTAKD_UNSUPPORTED;
        case ErrorClass::decode:
            return VINTAKD_DECODE;
        case ErrorClass::limit:
            return VINTAKD_LIMIT;
        case ErrorClass::memory:
            return VINTAKD_MEMORY;
        case ErrorClass::output:
            return VINTAKD_OUTPUT;
        default:
            return VINTAKD_OTHER;
    }
}

/// Makes a call; whatever it throws becomes a status, and a text where there is an answer to hold it.
template <typename Call>
int guarded(vintakd_client* client, vintakd_answer* answer, Call&& call) noexcept {
    const auto failed = [&](int status, const char* text = nullptr) {
        try {
            if (answer) answer->text = text ? text : vintakd_status_text(status);
        } catch (...) {
            return static_cast<int>(VINTAKD_NO_MEMORY);
        }
        return status;
    };
    const auto gone = [&](int status) {
        try {
            return failed(!client || client->gateway.daemonLives() ? status : VINTAKD_NO_DAEMON);
        } catch (...) {
            return failed(status);
        }
    };
    try {
        return call();
    } catch (const ClassedError& error) {
        return failed(statusOf(error.kind()), error.text().c_str());
    } catch (const VintakdErrorException& error) {
        return failed(VINTAKD_OTHER, error.text().c_str());
    } catch (const SharedMemoryNotAllowedException&) {
        return failed(VINTAKD_NOT_ALLOWED);
    } catch (const SharedMemoryDoesNotExistsException&) {
        return failed(VINTAKD_NO_DAEMON);
    } catch (const ConnectionTimeoutException&) {
        return gone(VINTAKD_BUSY);
    } catch (const TimeoutException&) {
        return gone(VINTAKD_SILENT);
    } catch (const ipc::UserException&) {
        return gone(VINTAKD_CRASHED);
    } catch (const ipc::ChannelException&) {
        return failed(VINTAKD_SILENT);
    } catch (const std::bad_alloc&) {
        return failed(VINTAKD_NO_MEMORY);
    } catch (const std::exception& error) {
        return failed(VINTAKD_INTERNAL, error.what());
    } catch (...) {
        return failed(VINTAKD_INTERNAL);
    }
}

void ask(vintakd_client& client, const Words& words, vintakd_answer& answer) {
    std::string text = vintakd::vintak(
        client.gateway, words.input.c_str(), words.output.c_str(), words.cache.c_str(), words.verbose,
        words.dumponly, words.escape, words.optimize, words.noCached, static_cast<int>(words.tags.size() / 2),
        0, words.tags.data(), 0, nullptr, words.mask, words.streamParameter, words.frame, answer.warnings);
    const size_t open = text.rfind("<<<"), close = text.rfind(">>>");
    if (open != std::string::npos && close != std::string::npos && open < close) {
        answer.characterSet = text.substr(open + 3, close - open - 3);
        text.resize(open);
    }
    answer.text = std::move(text);
}

/// The values of a query's text, each with a ';' behind it; false when there are more of these than values.
bool split(const std::string& text, size_t count, std::vector<std::string>& values) {
    for (size_t start = 0, end; (end = text.find(';', start)) != std::string::npos; start = end + 1)
        values.push_back(text.substr(start, end - start));
    return values.size() == count;
}

void query(vintakd_client& client, const char* input, const uint32_t* tags, size_t count,
           vintakd_answer& answer) {
    Words words{.input = vintakd::absolutePath(input)};
    for (size_t i = 0; i < count; ++i)
        words.tags.insert(words.tags.end(), {static_cast<unsigned short>(tags[i] >> 16),
                                             static_cast<unsigned short>(tags[i] & 0xFFFF)});
    ask(client, words, answer);
    if (!split(answer.text, count, answer.values)) {
        // A value holds a separator: each is asked for by itself, where the last one ends the value.
        answer.values.clear();
        const std::vector<unsigned short> all = words.tags;
        for (size_t i = 0; i < count; ++i) {
            words.tags = {all[2 * i], all[2 * i + 1]};
            ask(client, words, answer);
            answer.values.push_back(answer.text.substr(0, answer.text.rfind(';')));
        }
    }
    answer.text.clear();
}

/// Runs `work` with an answer to fill, which the caller gets when it wants one.
template <typename Work>
int request(vintakd_client* client, vintakd_answer** given, Work&& work) noexcept {
    std::unique_ptr<vintakd_answer> own(new (std::nothrow) vintakd_answer);
    if (!own) return VINTAKD_NO_MEMORY;
    vintakd_answer* answer = own.get();
    const int status = guarded(client, answer, [&] {
        work(*answer);
        return static_cast<int>(VINTAKD_OK);
    });
    if (!given || status == VINTAKD_NO_MEMORY) return status;
    *given = own.release();
    return status;
}

const char* entry(const std::vector<std::string>& texts, size_t index) {
    return index < texts.size() ? texts[index].c_str() : nullptr;
}

}  // namespace

uint32_t vintakd_api_version(void) {
    return 1;
}

const char* vintakd_status_text(int status) {
    switch (status) {
        case VINTAKD_OK:
            return "done";
        case VINTAKD_BAD_ARGUMENT:
            return "an argument makes no sense";
        case VINTAKD_NO_DAEMON:
            return "no daemon is running behind the segment";
        case VINTAKD_NOT_ALLOWED:
            return "not allowed: the segment belongs to another account";
        case VINTAKD_BUSY:
            return "no channel was free in time";
        case VINTAKD_SILENT:
            return "the servant fell silent or out of step";
        case VINTAKD_CRASHED:
            return "the servant ended while it worked on the request";
        case VINTAKD_NO_MEMORY:
            return "out of memory";
        case VINTAKD_REQUEST:
            return "the request makes no sense";
        case VINTAKD_FILE:
            return "the file cannot be opened or read";
        case VINTAKD_OBJECT:
            return "it is no DICOM object, or a broken one";
        case VINTAKD_UNSUPPORTED:
            return "there is no decoder for it";
        case VINTAKD_DECODE:
            return "a frame cannot be decoded";
        case VINTAKD_LIMIT:
            return "a limit of the daemon was hit";
        case VINTAKD_MEMORY:
            return "the servant ran out of memory";
        case VINTAKD_OUTPUT:
            return "a result cannot be written where it is looked for";
        case VINTAKD_OTHER:
            return "the request failed";
        default:
            return "an internal failure";
    }
}

int vintakd_open(const char* segment, vintakd_client** client) {
    if (!client) return VINTAKD_BAD_ARGUMENT;
    *client = nullptr;
    return guarded(nullptr, nullptr, [&] {
        const char* name = segment ? segment : std::getenv("VINTAKD_SEGMENT");
        std::unique_ptr<vintakd_client> opened(new vintakd_client{Gateway(name && *name ? name : "vintakd")});
        if (!opened->gateway.daemonLives()) return static_cast<int>(VINTAKD_NO_DAEMON);
        *client = opened.release();
        return static_cast<int>(VINTAKD_OK);
    });
}

void vintakd_close(vintakd_client* client) {
    delete client;
}

int vintakd_set_timeout(vintakd_client* client, int milliseconds) {
    if (!client) return VINTAKD_BAD_ARGUMENT;
    client->gateway.setTimeout(milliseconds < 0 ? ipc::no_timeout : ipc::timeout{milliseconds}, false);
    return VINTAKD_OK;
}

int vintakd_ping(vintakd_client* client) {
    if (!client) return VINTAKD_BAD_ARGUMENT;
    return guarded(client, nullptr, [&] {
        return static_cast<int>(vintakd::ping(client->gateway) ? VINTAKD_OK : VINTAKD_SILENT);
    });
}

int vintakd_convert(vintakd_client* client, const vintakd_conversion* conversion, vintakd_answer** answer) {
    if (answer) *answer = nullptr;
    if (!client || !conversion || conversion->size < sizeof *conversion || !conversion->input ||
        !conversion->output_prefix)
        return VINTAKD_BAD_ARGUMENT;
    return request(client, answer, [&](vintakd_answer& filled) {
        Words words{.input = vintakd::absolutePath(conversion->input)};
        words.output = vintakd::absolutePath(conversion->output_prefix);
        words.cache =
            conversion->cache_prefix ? vintakd::absolutePath(conversion->cache_prefix) : words.output;
        words.dumponly = false;
        words.optimize = (conversion->flags & VINTAKD_KEEP_WIDE) == 0;
        words.noCached = (conversion->flags & VINTAKD_NO_CACHE) != 0;
        words.mask = static_cast<int>(conversion->files);
        words.frame = conversion->frame;
        words.streamParameter = conversion->stream_parameter;
        ask(*client, words, filled);
    });
}

int vintakd_dump(vintakd_client* client, const char* input, int escape, vintakd_answer** answer) {
    if (answer) *answer = nullptr;
    if (!client || !input) return VINTAKD_BAD_ARGUMENT;
    return request(client, answer, [&](vintakd_answer& filled) {
        ask(*client, {.input = vintakd::absolutePath(input), .verbose = true, .escape = escape != 0}, filled);
    });
}

int vintakd_query(vintakd_client* client, const char* input, const uint32_t* tags, size_t count,
                  vintakd_answer** answer) {
    if (answer) *answer = nullptr;
    if (!client || !input || !tags || count == 0) return VINTAKD_BAD_ARGUMENT;
    return request(client, answer,
                   [&](vintakd_answer& filled) { query(*client, input, tags, count, filled); });
}

const char* vintakd_answer_text(const vintakd_answer* answer) {
    return answer ? answer->text.c_str() : "";
}

const char* vintakd_answer_character_set(const vintakd_answer* answer) {
    return answer ? answer->characterSet.c_str() : "";
}

size_t vintakd_answer_warning_count(const vintakd_answer* answer) {
    return answer ? answer->warnings.size() : 0;
}

const char* vintakd_answer_warning(const vintakd_answer* answer, size_t index) {
    return answer ? entry(answer->warnings, index) : nullptr;
}

size_t vintakd_answer_value_count(const vintakd_answer* answer) {
    return answer ? answer->values.size() : 0;
}

const char* vintakd_answer_value(const vintakd_answer* answer, size_t index) {
    return answer ? entry(answer->values, index) : nullptr;
}

void vintakd_answer_free(vintakd_answer* answer) {
    delete answer;
}
