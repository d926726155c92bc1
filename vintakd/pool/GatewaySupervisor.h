#pragma once

#include <memory>

#include "vintakd/pool/ServantPool.h"

/// The pool of a servant class `T`, which is default-constructed in each servant process before its first
/// request.
template <class T>
class GatewaySupervisor : public ServantPool {
public:
    using ServantPool::ServantPool;

protected:
    std::unique_ptr<Servant> makeServant() override { return std::make_unique<T>(); }
};
