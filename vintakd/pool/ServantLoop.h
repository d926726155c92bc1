#pragma once

#include <functional>
#include <memory>

#include "vintakd/ipc/Channel.h"
#include "vintakd/pool/Servant.h"

/// The life of a servant process on its channel: answer a knock, serve one request, again and again, until it
/// retires after 1000 to 1999 requests so that the supervisor can renew it. Runs in the forked child, on one
/// thread.
class ServantLoop {
public:
    /// `supervisor` appears in trace lines only.
    ServantLoop(ipc::Channel& channel, const void* supervisor)
        : m_channel(channel), m_supervisor(supervisor) {}

    /// Makes the servant, tells `onReady`, and loops until retirement. Exceptions of a request are logged
    /// and the loop goes on; what escapes (from making the servant, or from telling a client that is gone)
    /// ends the process.
    void run(const std::function<std::unique_ptr<Servant>()>& makeServant,
             const std::function<void()>& onReady);

    /// Waits for a knock and answers it; false when what came was none.
    bool verifyClient();

private:
    bool serveOne(Servant& servant, bool last);

    ipc::Channel& m_channel;
    const void* m_supervisor;
};

/// Receives a verified client's request. A client that reserved and released without one leaves the servant
/// waiting here for the next client's knock, which is answered on the way. With the servant's last request
/// the renew bit goes up.
ipc::Message receiveRequest(ipc::Channel& channel);
