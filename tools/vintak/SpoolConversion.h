#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tools/spool/SpoolWork.h"
#include "tools/vintak/Session.h"

/// Where the results of a spool's objects go, and how they are made.
struct SpoolConversionOptions {
    std::string segment;
    std::string results;  ///< a folder, absolute
    int writeMask = 3;
    bool needOptimize = true;
    bool identify = true;    ///< ask for the instance UIDs
    bool keepNames = false;  ///< the results' folder bears the object's whole name, ".dcm" too
    bool sync = false;       ///< results are on the disk before they are seen
};

/// Has objects of a spool, or of an archive, converted by the daemon of this host. The results of an object
/// are a folder "KEY" below the results' folder, with the prefix "object" in it; a key may lead through
/// folders. They are written elsewhere and put there by one rename: whoever looks finds all of one version,
/// or all of the one before, or nothing.
class SpoolConversion : public SpoolWork {
public:
    /// `stops`: whether to give up waiting for a free servant. Throws std::runtime_error for a folder that
    /// cannot be used.
    SpoolConversion(SpoolConversionOptions options, std::function<bool()> stops);

    WorkResult run(const SpoolObject& object) override;

private:
    std::string keyFor(const SpoolObject& object) const;
    std::shared_ptr<Session> session();
    void forget(const std::shared_ptr<Session>& session);
    WorkResult convert(const SpoolObject& object, Session& session) const;
    void readIdentity(const SpoolObject& object, Session& session, WorkResult& result) const;
    void publish(const std::string& from, const std::string& key) const;

    SpoolConversionOptions m_options;
    std::function<bool()> m_stops;
    std::mutex m_mutex;
    std::shared_ptr<Session> m_session;
};
