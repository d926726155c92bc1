#include "tools/vintak-feed/BrokerWords.h"

#include <cstdlib>

#include "tools/command/Session.h"

namespace po = boost::program_options;

namespace {

constexpr const char* kHere = "amqp://localhost";

std::string fileOf(const CommandLine& line, const char* option) {
    return line.has(option) ? absolutePath(line.get<std::string>(option)) : std::string();
}

std::string addressIn(const CommandLine& line) {
    if (line.has("broker")) return line.get<std::string>("broker");
    const char* address = getenv("VINTAK_BROKER");
    return address && *address ? address : kHere;
}

}  // namespace

void addBrokerOptions(CommandLine& line) {
    line.addOptions()("broker", po::value<std::string>(),
                      "amqp://HOST[:PORT][/VHOST], or amqps:// for TLS (default: the environment variable "
                      "VINTAK_BROKER, else amqp://localhost)")(
        "user", po::value<std::string>()->default_value("guest"), "account at the broker")(
        "password-file", po::value<std::string>(),
        "file with its password in the first line, not for every account to read")(
        "ca", po::value<std::string>(),
        "certificates of the authorities that vouch for the broker, PEM (default: the system's)")(
        "cert", po::value<std::string>(), "certificate to show to the broker, PEM; with --key")(
        "key", po::value<std::string>(), "its key, PEM")("queue",
                                                         po::value<std::string>()->default_value("vintak"),
                                                         "what the names of queues and exchange begin with");
}

BrokerOptions brokerOptions(const CommandLine& line) {
#ifndef VINTAK_HAS_BROKER
    throw UsageError("this program was built without RabbitMQ (librabbitmq-dev)");
#endif
    BrokerOptions options;
    try {
        readBrokerAddress(addressIn(line), options);
    } catch (const BrokerOptionsError& error) {
        throw UsageError(error.what());
    }
    options.user = line.get<std::string>("user");
    options.passwordFile = fileOf(line, "password-file");
    options.authorities = fileOf(line, "ca");
    options.certificate = fileOf(line, "cert");
    options.key = fileOf(line, "key");
    options.queue = line.get<std::string>("queue");
    const bool hasTls = !(options.authorities + options.certificate + options.key).empty();
    if (options.certificate.empty() != options.key.empty()) throw UsageError("--cert and --key go together");
    if (hasTls && !options.isEncrypted) throw UsageError("--ca, --cert and --key are about amqps://");
    if (options.queue.empty() || options.queue.size() > 200) throw UsageError("--queue is a name");
    return options;
}
