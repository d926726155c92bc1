#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include "tools/broker/BrokerOptions.h"

struct amqp_connection_state_t_;

/// The broker cannot be reached, refuses, or has gone; the connection that threw it is of no more use.
class BrokerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Headers of a message: texts and whole numbers. Others that it may have are passed over.
using BrokerHeaders = std::map<std::string, std::variant<std::string, int64_t>>;

/// What is sent. Every message outlives its broker's end.
struct BrokerMessage {
    std::string body;  ///< JSON
    std::string id{};
    BrokerHeaders headers{};
    std::chrono::milliseconds expiration{};  ///< 0: never
};

/// What the broker tells.
struct BrokerEvent {
    enum class Kind : uint8_t {
        delivery,   ///< a message of the consumed queue, to be settled by its `tag`
        confirmed,  ///< what was published as `tag` is safe; with `multiple`, and all before
        refused,    ///< it is not
        returned,   ///< no queue took the message that was published as `tag`
        cancelled,  ///< the queue that was consumed is gone
    };
    Kind kind = Kind::delivery;
    uint64_t tag = 0;
    bool multiple = false;
    BrokerMessage message{};  ///< of a delivery
};

/// One connection with one channel, in confirm mode. Used by one thread, which must come back to next() more
/// often than the heartbeat. Every call throws BrokerError.
class BrokerConnection {
public:
    /// Connects and logs in; gives up after some 10 s. `name` is what the broker's lists show. Throws
    /// BrokerOptionsError, too.
    BrokerConnection(const BrokerOptions& options, const std::string& name);
    /// Says good-bye; what was delivered and is not settled goes back to the queue.
    ~BrokerConnection();
    BrokerConnection(const BrokerConnection&) = delete;
    BrokerConnection& operator=(const BrokerConnection&) = delete;

    /// Makes a durable queue, or finds one of the same `arguments`.
    void declareQueue(const std::string& name, const BrokerHeaders& arguments);
    /// Makes a durable exchange of the type "topic", or finds it.
    void declareTopic(const std::string& name);
    /// How many messages wait in a queue; nothing when there is no such queue.
    std::optional<uint64_t> depth(const std::string& queue);

    /// Sends a message to a queue that is named by the exchange "" and its name, or to an exchange by a key.
    /// Returns its number, which confirmed() and the like name. A message that `must` be taken by a queue is
    /// returned where there is none.
    uint64_t publish(const std::string& exchange, const std::string& key, const BrokerMessage& message,
                     bool must);

    /// Has the broker deliver, at most `prefetch` that are not settled.
    void consume(const std::string& queue, uint16_t prefetch);
    /// Has it deliver nothing more; what is on its way still comes.
    void stopConsuming();
    /// The message was dealt with: the broker may forget it.
    void acknowledge(uint64_t tag);
    /// It was not: it goes back to the queue, and the broker counts that.
    void giveBack(uint64_t tag);

    /// What the broker tells next, waiting for up to `patience`. Keeps the connection alive.
    std::optional<BrokerEvent> next(std::chrono::milliseconds patience);
    /// Readable when it may have told something.
    int descriptor() const;

private:
    struct Close {
        void operator()(amqp_connection_state_t_* state) const;
    };

    void openSocket(const BrokerOptions& options);
    void logIn(const BrokerOptions& options, const std::string& name);
    void openChannel();
    void checkReply(const std::string& what);
    void check(int status, const std::string& what) const;
    BrokerMessage readMessage(uint64_t* returnedTag);

    std::unique_ptr<amqp_connection_state_t_, Close> m_state;
    std::string m_place;
    bool m_isOpen = false;
    uint64_t m_published = 0;
};
