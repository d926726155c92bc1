#pragma once

#include "vintakd/ipc/Channel.h"

/// What a servant process of the pool does with one verified client.
class Servant {
public:
    virtual ~Servant() = default;
    /// Reads the client's request from the servant's own channel and answers it; may throw.
    virtual void serve(ipc::Channel& channel) = 0;
};
