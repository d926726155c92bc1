#pragma once

#include <string>

/// The section "Vintakd" of Orthanc's configuration.
struct Configuration {
    std::string spool = "/var/lib/vintakd/spool";  ///< "Spool"
    std::string results =
        "/var/lib/vintakd/results";  ///< "Results": the folder that the feeder writes results into
    std::string url = "/images";     ///< "Url": where a web server shows that folder
    bool priority = false;           ///< "Priority": into the folder that is served first
    bool sync = false;               ///< "Sync": on the disk before the object is in the spool

    /// Reads it from the whole configuration as JSON. Throws std::runtime_error for a value of another kind
    /// and for a name that it does not know.
    static Configuration read(const std::string& json);
};
