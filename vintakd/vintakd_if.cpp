#include "vintakd/vintakd_if.h"

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string_view>
#include <vector>

#include "hsutils/ClassedError.h"
#include "hsutils/Utils.h"
#include "vintakd/folderidentity.h"
#include "vintakd/ipc/QXLogger.h"

namespace vintakd {

const char* const VintakProgressMsgs::s_szVintakdLoaded = "VINTAKD loaded";
const size_t VintakProgressMsgs::s_nVintakdLoaded = 15;
const char* const VintakProgressMsgs::s_szVintakdConvert = "VINTAKD convert";
const size_t VintakProgressMsgs::s_nVintakdConvert = 16;
const char* const VintakProgressMsgs::s_szVintakdFrame = "VINTAKD frame";
const size_t VintakProgressMsgs::s_nVintakdFrame = 14;
const char* const VintakProgressMsgs::s_szVintakdError = "VINTAKD ERROR";
const size_t VintakProgressMsgs::s_nVintakdError = 13;

namespace {

constexpr ipc::timeout kLoadedTimeout{60000};

bool equals(const ipc::Message& message, const char* text, size_t size) {
    return mymemcmp(message.getPointer(), message.getSize(), text, size) == 0;
}

bool isError(const ipc::Message& message) {
    return message.getSize() >= VintakProgressMsgs::s_nVintakdError &&
           std::memcmp(message.getPointer(), VintakProgressMsgs::s_szVintakdError,
                       VintakProgressMsgs::s_nVintakdError) == 0;
}

/// The text from `offset` up to the first NUL or the message's end.
std::string textFrom(const ipc::Message& message, size_t offset) {
    const std::string_view rest(message.getPointer() + offset, message.getSize() - offset);
    return std::string(rest.substr(0, rest.find('\0')));
}

/// The texts behind the answer's NUL, each with a NUL of its own.
std::vector<std::string> warningsOf(const ipc::Message& message) {
    std::vector<std::string> texts;
    for (size_t at = textFrom(message, 0).size() + 1; at < message.getSize(); at += texts.back().size() + 1)
        texts.push_back(textFrom(message, at));
    return texts;
}

void storeText(char (&field)[kTextFieldSize], const char* text, const char* name) {
    if (std::strlen(text) >= kTextFieldSize) {
        std::string reason = std::string(name) + " has " + std::to_string(std::strlen(text)) +
                             " bytes, the limit is " + std::to_string(kTextFieldSize - 1) + ": " + text;
        throw ClassedError(reason, ErrorClass::request);
    }
    std::strncpy(field, text, kTextFieldSize);
}

void appendLists(std::vector<char>& request, int numTags, const unsigned short* tags, int numFiles,
                 const char** files) {
    const auto append = [&request](const void* data, size_t size) {
        const char* bytes = static_cast<const char*>(data);
        request.insert(request.end(), bytes, bytes + size);
    };
    if (numTags > 0) append(tags, 4 * static_cast<size_t>(numTags));
    for (int i = 0; files != nullptr && i < numFiles; ++i) {
        const auto length = static_cast<uint32_t>(std::strlen(files[i]));
        append(&length, sizeof length);
        append(files[i], length);
    }
}

/// What this process sees where the results are to lie, for every name of the list.
void appendFolders(std::vector<char>& request, const VintakMsgIn& header, const char** files) {
    std::string lastOutput, lastCache;
    ResultFolders folders;
    const auto look = [](const std::string& prefix, std::string& last, FolderIdentity& identity) {
        const std::string folder = folderOfPrefix(prefix);
        if (folder != last) identity = identifyFolder(folder);
        last = folder;
    };
    for (int i = 0; i < std::max(header.numFiles, 1); ++i) {
        const char* name = header.numFiles > 0 ? files[i] : "";
        look(std::string(header.outputPrefix) + name, lastOutput, folders.output);
        look(std::string(header.cachePrefix) + name, lastCache, folders.cache);
        const char* bytes = reinterpret_cast<const char*>(&folders);
        request.insert(request.end(), bytes, bytes + sizeof folders);
    }
}

/// The receiving half of a request: progress messages until the answer or the error.
class Answer {
public:
    Answer(ipc::Channel& channel, int& progress) : m_channel(channel), m_progress(progress) {}

    ipc::Message wait() {
        for (m_progress = 11;; ++m_progress) {
            ipc::Message message = m_channel.recv();
            ++m_progress;
            if (equals(message, VintakProgressMsgs::s_szVintakdLoaded,
                       VintakProgressMsgs::s_nVintakdLoaded)) {
                raiseTimeout();
            } else if (isError(message)) {
                std::string text = textFrom(message, VintakProgressMsgs::s_nVintakdError);
                const size_t known = VintakProgressMsgs::s_nVintakdError + text.size() + 1;
                if (text.empty()) text = "Unknown error";
                throw ClassedError(text, known < message.getSize() ? errorClassNamed(textFrom(message, known))
                                                                   : ErrorClass::other);
            } else if (!equals(message, VintakProgressMsgs::s_szVintakdConvert,
                               VintakProgressMsgs::s_nVintakdConvert) &&
                       !equals(message, VintakProgressMsgs::s_szVintakdFrame,
                               VintakProgressMsgs::s_nVintakdFrame)) {
                if (m_raised) m_channel.setTimeout(m_original);
                return message;
            }
        }
    }

private:
    void raiseTimeout() {
        if (!m_raised) m_original = m_channel.getTimeout();
        m_raised = true;
        m_channel.setTimeout(kLoadedTimeout);
    }

    ipc::Channel& m_channel;
    int& m_progress;
    ipc::timeout m_original;
    bool m_raised = false;
};

void logFailure(const char* exception, uint64_t channel, const char* inputFile, int progress) {
    OFLOG_ERROR(GetQXLogger(), "vintak() :: " << exception << " caught on Channel: " << channel
                                              << " processing input " << printable(inputFile)
                                              << " progress: " << progress);
}

/// Where the header says so the request's last bytes get the time that the channel was waited for.
ipc::Message exchange(Gateway& gateway, Gateway::Haste haste, std::vector<char>& request, bool tellsWaiting,
                      uint64_t& number, int& progress) {
    const int64_t start = nanoTime();
    ReservedChannel reserved(gateway, haste);
    const auto waited = static_cast<uint64_t>(nanoTime() - start);
    if (tellsWaiting) std::memcpy(request.data() + request.size() - sizeof waited, &waited, sizeof waited);
    number = reserved.index();
    progress = 2;
    ipc::Channel& channel = gateway.getChannel(reserved.index());
    channel.send(request.data(), request.size());
    ipc::Message answer = Answer(channel, progress).wait();
    reserved.release();
    return answer;
}

VintakMsgIn headerOf(bool verbose, bool dumponly, bool escapeNewLines, bool needOptimize, bool noCached,
                     int numTags, int numTagsOnce, int numFiles, int writeMask, float streamParameter,
                     int specificFrame) {
    VintakMsgIn header;
    std::memset(&header, 0, sizeof header);
    header.verbose = verbose;
    header.dumponly = dumponly;
    header.escapeNewLines = escapeNewLines;
    header.needOptimize = needOptimize;
    header.noCached = noCached;
    header.writeMask = writeMask;
    header.streamParameter = streamParameter;
    header.specificFrame = specificFrame;
    header.numTags = numTags;
    header.numTagsOnce = numTagsOnce;
    header.numFiles = numFiles;
    return header;
}

ipc::Message makeRequest(Gateway& gateway, VintakMsgIn& header, const char* inputFile,
                         const char* outputPrefix, const char* cachePrefix, const unsigned short* tags,
                         const char** files, const ConversionPart& part = {}) {
    storeText(header.inputFile, inputFile, "the input path");
    storeText(header.outputPrefix, outputPrefix, "the output prefix");
    storeText(header.cachePrefix, cachePrefix, "the cache prefix");
    const char* headerBytes = reinterpret_cast<const char*>(&header);
    std::vector<char> request(headerBytes, headerBytes + sizeof header);
    appendLists(request, header.numTags, tags, header.numFiles, files);
    if ((header.extras & requestextras::kFolders) != 0) appendFolders(request, header, files);
    if ((header.extras & requestextras::kPart) != 0) {
        const char* bytes = reinterpret_cast<const char*>(&part);
        request.insert(request.end(), bytes, bytes + sizeof part);
    }
    const bool tellsWaiting = (header.extras & requestextras::kWaited) != 0;
    if (tellsWaiting) request.resize(request.size() + sizeof(uint64_t));

    const bool converts = !header.dumponly && header.numTags <= 0;
    auto number = static_cast<uint64_t>(-99);
    int progress = 0;
    try {
        return exchange(gateway, converts ? Gateway::Haste::none : Gateway::Haste::some, request,
                        tellsWaiting, number, progress);
    } catch (const ipc::CommunicationMismatchException&) {
        logFailure("CommunicationMismatchException", number, inputFile, progress);
        throw;
    } catch (const TimeoutException&) {
        logFailure("TimeoutException", number, inputFile, progress);
        throw;
    } catch (const ConnectionTimeoutException&) {
        logFailure("ConnectionTimeoutException", number, inputFile, progress);
        throw;
    }
}

}  // namespace

std::string vintak(Gateway& gateway, const char* inputFile, const char* outputPrefix, const char* cachePrefix,
                   bool verbose, bool dumponly, bool escapeNewLines, bool needOptimize, bool noCached,
                   int numTags, int numTagsOnce, const unsigned short* tags, int numFiles, const char** files,
                   int writeMask, float streamParameter, int specificFrame) {
    VintakMsgIn header = headerOf(verbose, dumponly, escapeNewLines, needOptimize, noCached, numTags,
                                  numTagsOnce, numFiles, writeMask, streamParameter, specificFrame);
    return textFrom(makeRequest(gateway, header, inputFile, outputPrefix, cachePrefix, tags, files), 0);
}

std::string vintak(Gateway& gateway, const char* inputFile, const char* outputPrefix, const char* cachePrefix,
                   bool verbose, bool dumponly, bool escapeNewLines, bool needOptimize, bool noCached,
                   int numTags, int numTagsOnce, const unsigned short* tags, int numFiles, const char** files,
                   int writeMask, float streamParameter, int specificFrame,
                   std::vector<std::string>& warnings) {
    VintakMsgIn header = headerOf(verbose, dumponly, escapeNewLines, needOptimize, noCached, numTags,
                                  numTagsOnce, numFiles, writeMask, streamParameter, specificFrame);
    header.wantWarnings = true;
    header.extras = requestextras::kErrorClass | requestextras::kWaited;
    if (!dumponly) header.extras |= requestextras::kFolders;
    header.extrasCheck = requestextras::checkOf(header.extras);
    const ipc::Message answer =
        makeRequest(gateway, header, inputFile, outputPrefix, cachePrefix, tags, files);
    warnings = warningsOf(answer);
    return textFrom(answer, 0);
}

std::string vintakPart(Gateway& gateway, const char* inputFile, const char* outputPrefix,
                       const char* cachePrefix, bool needOptimize, bool noCached, int writeMask,
                       float streamParameter, const ConversionPart& part,
                       std::vector<std::string>& warnings) {
    VintakMsgIn header = headerOf(false, false, false, needOptimize, noCached, 0, 0, 0, writeMask,
                                  streamParameter, ConversionPart::kNoFrame);
    header.wantWarnings = true;
    header.extras = requestextras::kAll;
    header.extrasCheck = requestextras::checkOf(header.extras);
    const ipc::Message answer =
        makeRequest(gateway, header, inputFile, outputPrefix, cachePrefix, nullptr, nullptr, part);
    warnings = warningsOf(answer);
    return textFrom(answer, 0);
}

bool ping(Gateway& gateway) {
    ReservedChannel reserved(gateway);
    ipc::Channel& channel = gateway.getChannel(reserved.index());
    channel.send("PING", 5);
    const ipc::Message answer = channel.recv();
    reserved.release();
    return answer.getSize() >= 4 && std::memcmp(answer.getPointer(), "PONG", 4) == 0;
}

void printVintakMsg(std::ostream& out, VintakMsgIn* msg) {
    if (!msg) {
        out << "Vintak Message: [NULL]" << std::endl;
        return;
    }
    const auto text = [](const char(&field)[kTextFieldSize]) {
        return std::string(field, strnlen(field, kTextFieldSize));
    };
    out << "Vintak Message:" << std::endl;
    out << "   inputFile:      \"" << text(msg->inputFile) << '"' << std::endl;
    out << "   outputPrefix:   \"" << text(msg->outputPrefix) << '"' << std::endl;
    out << "   cachePrefix:    \"" << text(msg->cachePrefix) << '"' << std::endl;
    out << "   verbose:        " << int{msg->verbose} << std::endl;
    out << "   dumponly:       " << int{msg->dumponly} << std::endl;
    out << "   escapeNewLines: " << int{msg->escapeNewLines} << std::endl;
    out << "   needOptimize:   " << int{msg->needOptimize} << std::endl;
    out << "   noCached:       " << int{msg->noCached} << std::endl;
    out << "   numTags:        " << msg->numTags << std::endl;
    out << "   numTagsOnce:    " << msg->numTagsOnce << std::endl;
    out << "   numFiles:       " << msg->numFiles << std::endl;
}

}  // namespace vintakd
