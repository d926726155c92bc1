#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "tools/broker/BrokerOptions.h"
#include "tools/feeding/SpoolWork.h"

class JobPublisher;

/// Hands the spool's objects to a broker. The file that a job names is another name of the object (or a copy
/// of one that belongs to another account), in the spool's folder "submitted", and begins with its version:
/// the spool may delete its own name or put another version there. `vintak work --submitted` deletes it when
/// the job is done.
class SpoolSubmission : public SpoolWork {
public:
    /// `spool` is absolute. Throws BrokerOptionsError, or std::runtime_error for a folder that cannot be
    /// used.
    SpoolSubmission(BrokerOptions broker, const std::string& spool);
    ~SpoolSubmission() override;

    WorkResult run(const SpoolObject& object) override;

private:
    WorkResult submit(const SpoolObject& object, const std::string& file);
    void publish(const struct Job& job);

    BrokerOptions m_broker;
    std::string m_folder;
    std::mutex m_mutex;
    std::unique_ptr<JobPublisher> m_publisher;
};
