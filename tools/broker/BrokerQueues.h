#pragma once

#include <string>

#include "tools/broker/BrokerConnection.h"

/// The names of what a broker keeps for us; all begin with BrokerOptions::queue.
struct BrokerQueues {
    explicit BrokerQueues(const std::string& queue);

    std::string jobs;    ///< what is to be done
    std::string retry;   ///< what is done again after a pause
    std::string dead;    ///< what will not be done, each with the cause in its headers
    std::string events;  ///< the exchange on which results are announced; the key is the result
};

/// Makes the queues and the exchange, or finds them. Throws BrokerError: they are there with other arguments,
/// or the account may not.
void declareQueues(BrokerConnection& connection, const BrokerQueues& queues);
