#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "hsutils/ConversionPart.h"
#include "hsutils/VintakdErrorException.h"
#include "vintakd/ipc/Gateway.h"
#include "vintakd/ipc/ipcexceptions.h"

/// The client's calls on the conversion service. Each call reserves a channel of the gateway, makes one
/// request on it and releases it again; any number of threads and processes may call at the same time.
namespace vintakd {

/// Bytes of a text field of a request, its terminating NUL included.
inline constexpr size_t kTextFieldSize = 1024;

/// What a request brings or asks for beyond the first release, a sum; daemons that do not know it pass over
/// it.
namespace requestextras {
/// After the file list follow, for every name and once where there are none, the device and the inode of the
/// output prefix's folder and of the cache prefix's folder as the client sees them (4 times uint64).
inline constexpr uint8_t kFolders = 1;
/// An error answer is to bring its class: behind the text a NUL and the word (hsutils/errorclass.h).
inline constexpr uint8_t kErrorClass = 2;
/// At the end of the request stand the nanoseconds (uint64) that its client waited for a channel.
inline constexpr uint8_t kWaited = 4;
/// The request is a part of a conversion: before the time waited stands a ConversionPart.
inline constexpr uint8_t kPart = 8;
inline constexpr uint8_t kAll = 15;
/// What `extrasCheck` holds beside them: the padding of a first client's request may hold anything.
inline constexpr uint8_t checkOf(uint8_t extras) {
    return static_cast<uint8_t>(~extras);
}
}  // namespace requestextras

/// The fixed header of a request. A tag list (numTags times uint16 group, uint16 element) and a file list
/// (numFiles times uint32 byte count and the name's bytes) follow it, and what `extras` says. Host byte
/// order.
struct VintakMsgIn {
    char inputFile[kTextFieldSize];     ///< path, or the prefix of every name in the file list
    char outputPrefix[kTextFieldSize];  ///< prefix of the output files
    char cachePrefix[kTextFieldSize];   ///< prefix of the cache files
    bool verbose;                       ///< answer with the dump of all tags
    bool dumponly;                      ///< convert nothing
    bool escapeNewLines;                ///< escape line breaks and backslashes in the dump
    bool needOptimize;                  ///< narrow 16-bit frames whose values fit 8 bits
    bool noCached;                      ///< write no cache files and no ".pdcm" copy
    bool wantWarnings;                  ///< append the conversion's warnings to the answer
    uint8_t extras;                     ///< requestextras
    uint8_t extrasCheck;                ///< requestextras::checkOf(extras), or the extras are none
    int32_t writeMask;      ///< which files are written: 0x01 ".p.qi4", 0x02 ".t.qi4" and ".f.qi4", 0x04 no
                            ///< thumbnails, 0x10 no ".raw"
    float streamParameter;  ///< above 0: handed to the stream writer
    int32_t specificFrame;  ///< 1-based; 0 for all frames
    int32_t numTags;        ///< entries of the tag list
    int32_t numTagsOnce;    ///< how many of the first tags are read from the first file only
    int32_t numFiles;       ///< records of the file list
};

static_assert(sizeof(VintakMsgIn) == 3104);
static_assert(offsetof(VintakMsgIn, wantWarnings) == 3077 && offsetof(VintakMsgIn, extras) == 3078);
static_assert(offsetof(VintakMsgIn, verbose) == 3072 && offsetof(VintakMsgIn, writeMask) == 3080);
static_assert(offsetof(VintakMsgIn, numTags) == 3092 && offsetof(VintakMsgIn, numFiles) == 3100);

/// What a servant may send before its answer. The byte counts include the terminating NUL, but for the error
/// prefix.
struct VintakProgressMsgs {
    static const char* const s_szVintakdLoaded;
    static const size_t s_nVintakdLoaded;
    static const char* const s_szVintakdConvert;
    static const size_t s_nVintakdConvert;
    static const char* const s_szVintakdFrame;
    static const size_t s_nVintakdFrame;
    static const char* const s_szVintakdError;
    static const size_t s_nVintakdError;
};

/// Makes one request and returns the answer: the dump or the tag values, then "<<<", the character set,
/// ">>>".
/// `tags` points to numTags pairs (group, element), `files` to numFiles names. Throws VintakdErrorException
/// with the servant's text, or when a text has 1024 bytes or more; CommunicationMismatchException,
/// TimeoutException and ConnectionTimeoutException (all logged) when the exchange fails; UserException when
/// the servant died.
std::string vintak(Gateway& gateway, const char* inputFile, const char* outputPrefix, const char* cachePrefix,
                   bool verbose, bool dumponly, bool escapeNewLines, bool needOptimize, bool noCached,
                   int numTags, int numTagsOnce, const unsigned short* tags, int numFiles, const char** files,
                   int writeMask, float streamParameter, int specificFrame);

/// As above, for a conversion that is not to be taken for done when it is not. The daemon refuses it when it
/// does not see the folders of the prefixes that the caller sees: results are where the caller looks. And
/// `warnings` gets a line for each thing that is missing of the object, or that was read in a way that may
/// surprise (fewer frames than declared, no stored bits, an unknown colour model). Without this call a caller
/// finds them in the daemon's log only; a daemon that does not know them sends none. An error is a
/// ClassedError (hsutils/ClassedError.h), of class `other` when the daemon does not tell.
std::string vintak(Gateway& gateway, const char* inputFile, const char* outputPrefix, const char* cachePrefix,
                   bool verbose, bool dumponly, bool escapeNewLines, bool needOptimize, bool noCached,
                   int numTags, int numTagsOnce, const unsigned short* tags, int numFiles, const char** files,
                   int writeMask, float streamParameter, int specificFrame,
                   std::vector<std::string>& warnings);

/// As above for a part of the conversion of `inputFile`. An error of class `other` may come of a daemon that
/// does not know parts; it has converted nothing then.
std::string vintakPart(Gateway& gateway, const char* inputFile, const char* outputPrefix,
                       const char* cachePrefix, bool needOptimize, bool noCached, int writeMask,
                       float streamParameter, const ConversionPart& part, std::vector<std::string>& warnings);

/// Whether a servant answers; throws as vintak() does.
bool ping(Gateway& gateway);

/// Prints a request for diagnostics; `msg` may be null.
void printVintakMsg(std::ostream& out, VintakMsgIn* msg);

}  // namespace vintakd
