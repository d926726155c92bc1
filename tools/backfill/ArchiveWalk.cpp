#include "tools/backfill/ArchiveWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

struct Closer {
    void operator()(DIR* folder) const { closedir(folder); }
};
using OpenFolder = std::unique_ptr<DIR, Closer>;

ListedFile listed(std::string name, const struct stat& status) {
    return {.name = std::move(name), .size = status.st_size, .modified = status.st_mtim.tv_sec};
}

std::string below(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

/// One walk.
class Walk {
public:
    Walk(std::string archive, std::string leftOut, ArchiveVisitor& visitor)
        : m_archive(std::move(archive)), m_leftOutPath(std::move(leftOut)), m_visitor(visitor) {}
    void run() {
        if (!enter("")) throw std::runtime_error(m_archive + ": " + std::strerror(m_error));
        while (!m_levels.empty() && !m_visitor.stops()) {
            Level& level = m_levels.back();
            if (level.at == level.folders.size()) {
                m_levels.pop_back();
                continue;
            }
            const std::string folder = below(level.path, level.folders[level.at++]);
            if (m_visitor.entersBelow(folder) && !enter(folder) && m_error != ENOENT)
                m_visitor.unreadable(folder,
                                     std::string("the folder cannot be read: ") + std::strerror(m_error));
        }
    }

private:
    struct Level {
        std::string path;
        std::vector<std::string> folders{};
        size_t at = 0;
    };

    /// False with `m_error` when the folder cannot be read to its end.
    bool enter(const std::string& folder) {
        const OpenFolder open(opendir((m_archive + "/" + folder).c_str()));
        struct stat status {};
        if (!open || fstat(dirfd(open.get()), &status) != 0) {
            m_error = errno;
            return false;
        }
        // Others may make it while this goes on.
        if (m_leftOut.st_ino == 0 && !m_leftOutPath.empty()) (void)stat(m_leftOutPath.c_str(), &m_leftOut);
        if (m_leftOut.st_ino != 0 && status.st_ino == m_leftOut.st_ino && status.st_dev == m_leftOut.st_dev)
            return true;
        Level level{.path = folder};
        const bool isRead = read(open.get(), folder, m_visitor.wantsFiles(folder), level.folders);
        std::sort(level.folders.begin(), level.folders.end());
        m_levels.push_back(std::move(level));
        return isRead;
    }

    bool read(DIR* open, const std::string& folder, bool wantsFiles, std::vector<std::string>& folders) {
        std::vector<ListedFile> files;
        for (errno = 0; const dirent* entry = readdir(open); errno = 0) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            struct stat status {};
            const bool mayBeFile = entry->d_type != DT_DIR;
            if (mayBeFile && !wantsFiles && entry->d_type != DT_UNKNOWN) continue;
            const int flags = entry->d_type == DT_UNKNOWN ? AT_SYMLINK_NOFOLLOW : 0;
            if (mayBeFile && fstatat(dirfd(open), name.c_str(), &status, flags) != 0) continue;  // gone
            if (!mayBeFile || (S_ISDIR(status.st_mode) && entry->d_type == DT_UNKNOWN))
                folders.push_back(name);
            else if (wantsFiles && S_ISREG(status.st_mode))
                files.push_back(listed(name, status));
            if (files.size() < kPiece) continue;
            m_visitor.files(folder, std::exchange(files, {}), false);
            if (m_visitor.stops()) return true;
        }
        m_error = errno;
        if (wantsFiles) m_visitor.files(folder, std::move(files), m_error == 0);
        return m_error == 0;
    }

    std::string m_archive;
    std::string m_leftOutPath;
    struct stat m_leftOut {};
    ArchiveVisitor& m_visitor;
    std::vector<Level> m_levels;
    int m_error = 0;
};

/// The name below the archive; nothing when it leads out of it.
std::optional<std::string> nameBelow(const std::string& archive, const std::string& name) {
    fs::path path = fs::path(name).lexically_normal();
    if (path.is_absolute()) path = path.lexically_relative(archive);
    const std::string text = path.string();
    const bool leadsOut =
        text.empty() || text == "." || text == ".." || text.starts_with("../") || text.ends_with('/');
    return leadsOut ? std::nullopt : std::optional(text);
}

}  // namespace

void walkArchive(const std::string& archive, const std::string& leftOut, ArchiveVisitor& visitor) {
    Walk(archive, leftOut, visitor).run();
}

bool archiveIsThere(const std::string& archive) {
    std::error_code error;
    return fs::directory_iterator(archive, error) != fs::directory_iterator() && !error;
}

std::string nothingIn(const std::string& archive) {
    return "nothing is in the archive " + archive + ", whose storage may not be mounted";
}

size_t readArchiveList(const std::string& archive, const NameSource& names, ArchiveVisitor& visitor,
                       std::string& refused) {
    size_t refusals = 0;
    std::string current, name;
    std::vector<ListedFile> files;
    const auto tell = [&] {
        if (!files.empty()) visitor.files(current, std::exchange(files, {}), false);
    };
    while (!visitor.stops() && names(name)) {
        const std::optional<std::string> path = nameBelow(archive, name);
        if (!path) {
            if (refusals++ == 0) refused = name;
            continue;
        }
        const size_t slash = path->rfind('/');
        const std::string folder = slash == std::string::npos ? "" : path->substr(0, slash);
        if (folder != current || files.size() >= kPiece) tell();
        current = folder;
        if (!visitor.wantsFiles(folder)) continue;
        struct stat status {};
        if (stat((archive + "/" + *path).c_str(), &status) != 0) status = {};
        files.push_back(listed(path->substr(slash + 1), status));
    }
    tell();
    return refusals;
}
