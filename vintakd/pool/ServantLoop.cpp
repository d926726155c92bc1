#include "vintakd/pool/ServantLoop.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "hsutils/Utils.h"
#include "vintakd/ipc/GatewayBase.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/ipc/trace.h"
#include "vintakd/pool/servantduty.h"

#define TRACE_THIS(text) TRACE_CHANNEL(m_channel.index(), "GatewaySupervisor", m_supervisor, text)

namespace {

constexpr ipc::timeout kKnockAnswer{100};

bool isKnock(const ipc::Message& message) {
    return mymemcmp(message.getPointer(), message.getSize(), GatewayBase::s_szKnockKnock,
                    std::strlen(GatewayBase::s_szKnockKnock)) == 0;
}

void answerKnock(ipc::Channel& channel) {
    servantduty::knocked();
    channel.send(GatewayBase::s_szWhosThere, std::strlen(GatewayBase::s_szWhosThere), kKnockAnswer);
}

/// The request that the servant waits for is its last. The process has one thread and one loop.
bool s_lastRequest = false;

/// Takes the request off the servant's hands, however it ends.
struct RequestEnd {
    ~RequestEnd() { servantduty::end(); }
};

/// The next message of a client that may take its time to begin it, but not to finish it.
ipc::Message receiveNext(ipc::Channel& channel) {
    return channel.recv(ipc::no_timeout, channel.getTimeout());
}

}  // namespace

ipc::Message receiveRequest(ipc::Channel& channel) {
    ipc::Message message = receiveNext(channel);
    while (isKnock(message)) {
        answerKnock(channel);
        message = receiveNext(channel);
    }
    servantduty::begin();
    // By the time that the client of the last request lets go of the channel, the next one must see that
    // nobody will answer there. Not sooner: a client may leave without a request, and the servant waits on.
    if (s_lastRequest) channel.setStatus(ipc::Channel::kStatusRenew);
    return message;
}

void ServantLoop::run(const std::function<std::unique_ptr<Servant>()>& makeServant,
                      const std::function<void()>& onReady) {
    std::unique_ptr<Servant> servant = makeServant();
    const pid_t pid = getpid();
    srand(static_cast<unsigned>(pid));
    // NOLINTNEXTLINE(cert-msc30-c,cert-msc50-cpp): it only has to differ from servant to servant
    const int limit = rand() % 1000 + 1000;
    onReady();

    int runs = 0;
    while (runs < limit) {
        if (serveOne(*servant, runs + 1 == limit)) ++runs;
    }
    TRACE_THIS("serverProcess(): renew");
    TRACE_THIS("serverProcess(): retiring after " << runs << " runs");
    OFLOG_INFO(GetQXLogger(), "serverProcess Retired after " << runs << " runs (" << m_channel.index()
                                                             << ") and servant: " << pid);
}

bool ServantLoop::serveOne(Servant& servant, bool last) {
    try {
        if (!verifyClient()) {
            TRACE_THIS("serverProcess(): verifyClient() failed");
            return false;
        }
        s_lastRequest = last;
        m_channel.clearStatus(ipc::Channel::kStatusRenew);  // whoever left it up, this servant serves on
        const RequestEnd end;
        servant.serve(m_channel);
        return true;
    } catch (const ipc::CommunicationMismatchException&) {
        TRACE_THIS("serverProcess(): catch CommunicationMismatchException");
        OFLOG_ERROR(GetQXLogger(), "serverProcess Exception [2]: CommunicationMismatchException caught ("
                                       << m_channel.index() << ")");
    } catch (const TimeoutException&) {
        TRACE_THIS("serverProcess(): catch TimeoutException");
        OFLOG_ERROR(GetQXLogger(),
                    "serverProcess Exception [2]: TimeoutException caught (" << m_channel.index() << ")");
    } catch (...) {
        TRACE_THIS("serverProcess(): catch something else, send error");
        OFLOG_ERROR(GetQXLogger(), "serverProcess Exception [2]: Unhandled Exception caught - send error ("
                                       << m_channel.index() << ")");
        m_channel.send_error();
    }
    m_channel.clearStatus(ipc::Channel::kStatusRenew);
    return false;
}

bool ServantLoop::verifyClient() {
    try {
        // What is longer is no knock: it is taken off the channel, but no memory is had for it.
        m_channel.setReceiveLimit(std::strlen(GatewayBase::s_szKnockKnock));
        const bool knock = isKnock(receiveNext(m_channel));
        m_channel.setReceiveLimit(ipc::Channel::kNoReceiveLimit);
        if (!knock) return false;
        answerKnock(m_channel);
        return true;
    } catch (const TimeoutException&) {
        TRACE_THIS("verifyClient(): TimeoutException, returning false");
    } catch (const ipc::CommunicationMismatchException&) {
        TRACE_THIS("verifyClient(): CommunicationMismatchException, returning false");
    } catch (const ipc::MessageTooLongException&) {
        TRACE_THIS("verifyClient(): message too long, returning false");
    }
    return false;
}
