#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vintakd/ipc/Channel.h"
#include "vintakd/service/VintakServant.h"

/// A servant and its client in one process: the servant's part runs on the caller's thread, the client's on
/// one of its own. Single use at a time.
class ServantExchange {
public:
    /// Prepares the process as the daemon does for its servants, and silences its logs.
    ServantExchange();

    /// Sends the bytes as one message; the final answer of the servant as it came.
    std::string serve(const std::string& request);

private:
    std::vector<char> m_region;
    ipc::Channel m_servantEnd;
    ipc::Channel m_clientEnd;
    VintakServant m_servant;
};
