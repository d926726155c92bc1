#pragma once

#include <cstdint>
#include <functional>

#include "tools/command/Session.h"

/// Into how many parts an object is cut, and from where on. To load it again costs each servant a few ms,
/// which is not worth it for less.
struct SpreadRule {
    size_t parts = 1;
    uint64_t leastBytes = uint64_t{16} << 20;  ///< of the file
    uint32_t leastFrames = 32;                 ///< of a part
};

/// The conversion of one object of many frames by several servants at once: each converts some of the frames,
/// one puts the parts together. The results are, byte for byte, those of one servant. What may not come out
/// so (a frame that cannot be decoded, overlays in the samples) and what a daemon that does not know parts is
/// asked for is converted by one servant after all.
class SpreadConversion {
public:
    /// Borrows both. `givesUp` as for Session::ask().
    SpreadConversion(Session& session, std::function<bool()> givesUp)
        : m_session(session), m_givesUp(std::move(givesUp)) {}

    /// Converts what `request` names in as many parts as the rule says. A part that fails for another reason
    /// than the object fails all of it with its cause, and nothing of the others stays. Throws NoDaemon.
    /// Called by several threads at once.
    Outcome ask(const Request& request, const SpreadRule& rule);

private:
    uint32_t framesOf(const Request& request);
    Outcome askParts(const Request& request, uint32_t frames, uint32_t parts);
    void undo(Request request, uint32_t frames);

    Session& m_session;
    std::function<bool()> m_givesUp;
};
