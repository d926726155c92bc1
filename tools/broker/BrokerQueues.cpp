#include "tools/broker/BrokerQueues.h"

namespace {

/// How often a job may come back without a word of why, since its worker or the broker's node went down with
/// it. Tries that came to nothing are counted by the workers, who know the cause; this is for a job that no
/// worker survives.
constexpr int64_t kMostReturns = 20;

/// Quorum queues move their dead letters only once the other queue has them: nothing is lost on the way.
BrokerHeaders quorumArguments(const std::string& afterwards) {
    BrokerHeaders arguments{{"x-queue-type", "quorum"}, {"x-overflow", "reject-publish"}};
    if (!afterwards.empty()) {
        arguments["x-dead-letter-exchange"] = "";
        arguments["x-dead-letter-routing-key"] = afterwards;
        arguments["x-dead-letter-strategy"] = "at-least-once";
    }
    return arguments;
}

}  // namespace

BrokerQueues::BrokerQueues(const std::string& queue)
    : jobs(queue + ".jobs"), retry(queue + ".retry"), dead(queue + ".dead"), events(queue + ".events") {}

void declareQueues(BrokerConnection& connection, const BrokerQueues& queues) {
    connection.declareQueue(queues.dead, quorumArguments(""));
    BrokerHeaders jobs = quorumArguments(queues.dead);
    jobs["x-delivery-limit"] = kMostReturns;
    connection.declareQueue(queues.jobs, jobs);
    // A message goes back to the jobs when its own time is over.
    connection.declareQueue(queues.retry, quorumArguments(queues.jobs));
    connection.declareTopic(queues.events);
}
