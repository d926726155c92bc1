#include "fuzz/servantexchange.h"

#include <dcmtk/oflog/oflog.h>
#include <stdlib.h>

#include <thread>

#include "vintakd/vintakd_if.h"

namespace {

// Much larger than a daemon's, so that a long dump takes few steps.
constexpr size_t kRegionSize = 1 << 20;

}  // namespace

ServantExchange::ServantExchange()
    : m_region(kRegionSize),
      m_servantEnd(m_region.data(), m_region.size(), true, 0),
      m_clientEnd(m_region.data(), m_region.size(), false, 0) {
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    VintakServant::prepareProcess();
}

std::string ServantExchange::serve(const std::string& request) {
    std::string answer;
    std::thread client([&] {
        m_clientEnd.send(request.data(), request.size());
        do {
            const ipc::Message message = m_clientEnd.recv();
            answer.assign(message.getPointer(), message.getSize());
        } while (answer == std::string(vintakd::VintakProgressMsgs::s_szVintakdFrame,
                                       vintakd::VintakProgressMsgs::s_nVintakdFrame));
    });
    // Whatever is wrong with the request becomes its answer. What is thrown all the same ends the process.
    m_servant.serve(m_servantEnd);
    client.join();
    return answer;
}
