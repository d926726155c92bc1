#pragma once

#include <atomic>

#include "vintakd/pool/SharedArray.h"

/// Lets the supervisor of an idle pool sleep: it hangs the bell up, and the first servant that gets something
/// to do rings. To be made before the servants are forked, who inherit it.
class IdleBell {
    static_assert(std::atomic<bool>::is_always_lock_free);

public:
    /// Throws std::runtime_error.
    IdleBell();
    ~IdleBell();
    IdleBell(const IdleBell&) = delete;
    IdleBell& operator=(const IdleBell&) = delete;

    /// The supervisor's side. Readable once it was rung, until stop().
    int file() const { return m_file; }
    void hangUp() { m_isUp[0] = true; }
    /// From now on nobody rings. Whether somebody did.
    bool stop();

    /// A servant's side: costs nothing while the bell does not hang, and is heard once.
    void ring();

private:
    SharedArray<std::atomic<bool>> m_isUp{1, "the bell"};
    int m_file;  ///< an eventfd
};
