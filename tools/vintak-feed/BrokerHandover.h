#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/broker/BrokerOptions.h"
#include "tools/broker/Job.h"
#include "tools/feeding/SpoolWork.h"

class JobPublisher;

/// Hands an archive's objects to a broker, where they lie. Several threads hand over at once, and what has
/// come together is confirmed by the broker in one.
class BrokerHandover : public SpoolWork {
public:
    /// Throws BrokerOptionsError.
    explicit BrokerHandover(BrokerOptions broker);
    ~BrokerHandover() override;

    WorkResult run(const SpoolObject& object) override;

    /// How many jobs wait in the broker's queue. Throws std::runtime_error.
    uint64_t depth();

private:
    struct Letter {
        Job job;
        bool isSent = false;
        std::string failure{};
    };

    void send(const std::vector<Letter*>& letters);
    JobPublisher& publisher();

    BrokerOptions m_broker;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isBusy = false;           ///< one thread talks to the broker
    std::vector<Letter*> m_letters;  ///< that nobody has sent yet
    std::unique_ptr<JobPublisher> m_publisher;
};
