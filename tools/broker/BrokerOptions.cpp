#include "tools/broker/BrokerOptions.h"

#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string_view>

namespace {

constexpr int kEncryptedPort = 5671;

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded += text[i];
            continue;
        }
        unsigned byte = 0;
        const std::string_view digits = text.substr(i + 1, 2);
        const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
        if (digits.size() < 2 || read.ptr != digits.data() + 2 || byte == 0)
            throw BrokerOptionsError("a broker's address has a % without two digits behind it");
        decoded += static_cast<char>(byte);
        i += 2;
    }
    return decoded;
}

int portOf(std::string_view text) {
    int port = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), port);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || port < 1 || port > 65535)
        throw BrokerOptionsError("a broker's port is 1 to 65535");
    return port;
}

}  // namespace

void readBrokerAddress(const std::string& address, BrokerOptions& options) {
    std::string_view rest = address;
    if (rest.starts_with("amqps://")) {
        options.isEncrypted = true;
        options.port = kEncryptedPort;
        rest.remove_prefix(8);
    } else if (rest.starts_with("amqp://")) {
        options.isEncrypted = false;
        options.port = BrokerOptions().port;
        rest.remove_prefix(7);
    } else {
        throw BrokerOptionsError("a broker's address is amqp://HOST[:PORT][/VHOST] or amqps://...");
    }
    const size_t slash = rest.find('/');
    std::string_view place = rest.substr(0, slash);
    options.virtualHost = slash == std::string_view::npos ? "" : percentDecoded(rest.substr(slash + 1));
    if (options.virtualHost.empty()) options.virtualHost = "/";
    if (place.find('@') != std::string_view::npos)
        throw BrokerOptionsError(
            "an account does not belong into a broker's address: name it by --user and --password-file");
    // An address of version 6 has colons of its own, and brackets for that.
    const size_t bracket = place.starts_with('[') ? place.find(']') : 0;
    if (bracket == std::string_view::npos) throw BrokerOptionsError("a broker's address lacks a ]");
    const size_t colon = place.find(':', bracket);
    if (colon != std::string_view::npos) options.port = portOf(place.substr(colon + 1));
    place = place.substr(0, colon);
    if (bracket > 0) place = place.substr(1, bracket - 1);
    if (place.empty()) throw BrokerOptionsError("a broker's address lacks the host");
    options.host = place;
}

std::string readPassword(const BrokerOptions& options) {
    const std::string& path = options.passwordFile;
    if (path.empty()) return "guest";
    std::ifstream file(path);
    struct stat status {};
    std::string password;
    if (!file || stat(path.c_str(), &status) != 0)
        throw BrokerOptionsError(path + ": " + std::strerror(errno));
    if ((status.st_mode & S_IROTH) != 0)
        throw BrokerOptionsError(path + " may be read by every account; chmod o= it");
    std::getline(file, password);
    if (password.ends_with('\r')) password.pop_back();
    if (password.empty()) throw BrokerOptionsError(path + " has no password in its first line");
    return password;
}
