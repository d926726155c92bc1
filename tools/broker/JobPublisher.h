#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>

#include "tools/broker/BrokerConnection.h"
#include "tools/broker/BrokerQueues.h"
#include "tools/broker/Job.h"

/// Puts jobs into a broker's queue, and knows when they are safe there. Used by one thread.
class JobPublisher {
public:
    /// Connects, and makes the queues where they are missing. Throws BrokerError or BrokerOptionsError.
    JobPublisher(const BrokerOptions& options, const std::string& name);

    /// Sends a job; it is safe after flush() only. Waits while too many are not confirmed yet. Throws
    /// BrokerError: of all that was not flushed nobody knows then, and it is to be sent again by another
    /// publisher. A job that is in the queue twice is done twice, to the same end.
    void publish(const Job& job);
    /// Waits until all that was sent is on the broker's disks. Throws BrokerError.
    void flush();
    /// How many jobs wait in the queue. Throws BrokerError.
    uint64_t depth();
    /// Answers the broker's heartbeat; to be called now and then by whoever publishes rarely. Throws
    /// BrokerError.
    void keepAlive();

private:
    /// False where nothing came. Throws BrokerError, also when there was patience and nothing came.
    bool take(std::chrono::milliseconds patience);

    BrokerQueues m_queues;
    BrokerConnection m_connection;
    std::set<uint64_t> m_open;
};
