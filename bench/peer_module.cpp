#include "bench/keltpeers.h"

/// What the module of another OpenJPH exports: peer_openjph.cpp, compiled and linked with that version.
extern "C" [[gnu::visibility("default")]] peers::Coder vintakdBenchPeer() {
    return {"OpenJPH-" VINTAKD_PEER_VERSION, peers::encodeOpenJph, peers::decodeOpenJph};
}
