#include "tools/feeding/SpoolWork.h"

#include <sys/stat.h>

#include <cstdio>
#include <tuple>

namespace {

std::tuple<int64_t, long, int64_t> identityOf(const timespec& modified, int64_t size) {
    return {modified.tv_sec, modified.tv_nsec, size};
}

}  // namespace

std::string keyOf(const std::string& name) {
    return name.size() > 4 && name.ends_with(".dcm") ? name.substr(0, name.size() - 4) : name;
}

std::string SpoolObject::key() const {
    return keyOf(name);
}

std::string SpoolObject::version() const {
    char text[80];
    (void)snprintf(text, sizeof text, "%lld.%09ld-%lld", static_cast<long long>(modified.tv_sec),
                   modified.tv_nsec, static_cast<long long>(size));
    return text;
}

bool SpoolObject::isUnchanged() const {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 &&
           identityOf(status.st_mtim, status.st_size) == identityOf(modified, size);
}
