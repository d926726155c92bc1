#pragma once

#include <stdexcept>
#include <string>

/// The address or the files for a broker make no sense; the text says why.
class BrokerOptionsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where a broker is and as who one talks to it. Secrets come out of files: a command line is for all to see.
struct BrokerOptions {
    std::string host = "localhost";
    int port = 5672;
    std::string virtualHost = "/";
    bool isEncrypted = false;
    std::string user = "guest";
    std::string passwordFile{};  ///< empty: "guest", whom a broker lets in from its own host alone
    std::string authorities{};   ///< PEM file; empty: those of the system
    std::string certificate{};   ///< PEM file of the client's own, and its key; both or none
    std::string key{};
    std::string queue = "vintak";  ///< what the names of queues and exchange begin with
    int heartbeatSeconds = 30;     ///< after twice as long without a sign the other side counts as gone
};

/// Reads "amqp://HOST[:PORT][/VHOST]" or "amqps://..." into `options`. An account in it is refused. Throws
/// BrokerOptionsError.
void readBrokerAddress(const std::string& address, BrokerOptions& options);

/// The first line of the password file. Throws BrokerOptionsError: it cannot be read, is empty, or every
/// account of the host may read it.
std::string readPassword(const BrokerOptions& options);
