#include "vintakd/service/VintakServant.h"

#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dcobject.h>

#include <filesystem>
#include <new>
#include <stdexcept>
#include <utility>

#include "hsutils/ClassedError.h"
#include "hsutils/StageClock.h"
#include "hsutils/Utils.h"
#include "imgproc/objectcheck.h"
#include "imgproc/objectsyntax.h"
#include "kelt4/kernel.h"
#include "pack/PackError.h"
#include "privateblock/privatedictionary.h"
#include "vintakd/ipc/QXLogger.h"
#include "vintakd/ipc/ipcexceptions.h"
#include "vintakd/pool/ServantLoop.h"
#include "vintakd/pool/servantduty.h"
#include "vintakd/service/CServantVintakProcess.h"
#include "vintakd/service/objectloader.h"
#include "vintakd/service/objectsaver.h"
#include "vintakd/service/resultfolders.h"
#include "vintakd/service/servantmemory.h"
#include "vintakd/vintakd_if.h"

namespace {

constexpr int64_t kKeepAliveNanoseconds = 10'000'000'000;

// Longer values stay in the file.
constexpr Uint32 kMaxReadLength = 1024;
constexpr Uint32 kMaxReadLengthOfDump = 4096;

std::string withCause(std::string text, const std::string& cause) {
    if (!cause.empty()) text += ": " + cause;
    return text;
}

ClassedError processError(int result, const std::string& source, const std::string& cause, ErrorClass kind) {
    return {
        withCause("ImageProcess error (" + std::to_string(result) + ") processing file: " + source, cause),
        kind};
}

/// The cause alone, where the text for the client names the object first.
std::string causeOf(const std::string& text, const std::string& object) {
    const size_t found = object.empty() ? std::string::npos : text.find(object + ": ");
    return found == std::string::npos ? text : text.substr(found + object.size() + 2);
}

uint64_t sizeOf(const std::string& path) {
    std::error_code ignored;
    const uintmax_t size = std::filesystem::file_size(path, ignored);
    return ignored ? 0 : size;
}

/// Does at the end of a scope, however it ends, what `action` says.
template <class Action>
class AtEnd {
public:
    explicit AtEnd(Action action) : m_action(action) {}
    ~AtEnd() { m_action(); }
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;

private:
    Action m_action;
};

}  // namespace

void VintakServant::prepareProcess() {
    if (!dcmDataDict.isDictionaryLoaded()) {
        throw std::runtime_error("the DICOM toolkit found no data dictionary; set DCMDICTPATH");
    }
    // Archives hold attributes with VR UN that the dictionary knows well; they are to be read by their own
    // VR.
    dcmEnableUnknownVRConversion.set(OFTrue);
    // Before the first object is loaded: in implicit VR only the dictionary tells what our elements are.
    registerPrivateDictionary();
    keepHeapForNextRequest();
    // A kernel name that makes no sense is the daemon's problem, not that of every request.
    dvq::kelt4::activeKernel();
}

void VintakServant::serve(ipc::Channel& channel) {
    m_channel = &channel;
    m_record = {};
    m_wantsErrorClass = false;
    m_quota = OutputQuota();
    m_writtenBytes = 0;
    m_startTime = 0;
    stageClock().start();
    // What nothing else is known of in the end is a client that did not take its answer.
    m_record.fail(RequestResult::lost, ErrorClass::exchange, "the client did not take its answer");
    const AtEnd accounting([this] { account(); });
    serveRequest();
    m_dump.str({});
    giveBackSurplusHeap();
}

void VintakServant::serveRequest() {
    ipc::Channel& channel = *m_channel;
    try {
        channel.setReceiveLimit(requestlimits::kBytes);
        const ipc::Message message = receiveRequest(channel);
        m_startTime = nanoTime();
        OFLOG_INFO(GetQXLogger(), "vintakd received (" << channel.index() << ")");
        answerRequest(message);
    } catch (const ClassedError& error) {
        OFLOG_ERROR(GetQXLogger(),
                    "VintakServant::serve() VintakdErrorException caught (" << channel.index() << ")");
        sendError(error.text(), error.kind());
    } catch (const ipc::MessageTooLongException&) {
        sendError("The request is longer than " + std::to_string(requestlimits::kBytes) + " bytes",
                  ErrorClass::request);
    } catch (const std::bad_alloc&) {
        sendError("Out of memory", ErrorClass::memory);
    } catch (const ipc::CommunicationMismatchException&) {
        m_record.fail(RequestResult::lost, ErrorClass::exchange, "the client fell out of step");
        OFLOG_ERROR(GetQXLogger(), "VintakServant::serve() CommunicationMismatchException caught ("
                                       << channel.index() << ")");
        throw;
    } catch (const TimeoutException&) {
        m_record.fail(RequestResult::lost, ErrorClass::exchange, "the client fell silent");
        OFLOG_ERROR(GetQXLogger(),
                    "VintakServant::serve() TimeoutException caught (" << channel.index() << ")");
        throw;
    } catch (...) {
        m_record.fail(RequestResult::failed, ErrorClass::other, "an exception that nobody knows");
        OFLOG_ERROR(GetQXLogger(),
                    "VintakServant::serve() Unknown Exception caught (" << channel.index() << ")");
        throw;
    }
}

void VintakServant::account() {
    stageClock().stop();
    countWritten(0);
    m_record.stages = stageClock().times();
    m_record.bytesWritten = m_writtenBytes;
    if (m_startTime != 0) m_record.duration = nanoTime() - m_startTime;
    servantduty::account(m_record);
}

/// Counted on the way: the figures of a long request are to move, and of one that dies they are to stay.
void VintakServant::countWritten(uint64_t frames) {
    servantduty::written(frames, m_quota.taken() - m_writtenBytes);
    m_record.frames += frames;
    m_writtenBytes = m_quota.taken();
}

void VintakServant::answerRequest(const ipc::Message& message) {
    clearStats();
    m_dump.str({});
    m_tags.clear();
    m_characterSet.clear();
    m_warnings.clear();
    m_fileCount = 0;
    m_wantsErrorClass = wantsErrorClass(message);
    m_quota = OutputQuota(servantduty::outputBytes());
    if (isPing(message)) {
        servantduty::kind(m_record.kind = RequestKind::ping);
        m_channel->send("PONG", 4);
        m_record.fail(RequestResult::done, ErrorClass::none, "");
        return;
    }
    const VintakRequest request = parseRequest(message);
    m_record.waited = request.waited;
    // Who asks for tags and names no place for results has no use for them.
    const bool wantsResults = !request.dumponly && (request.tags.empty() || !request.outputPrefix.empty());
    m_record.kind = wantsResults           ? RequestKind::convert
                    : request.tags.empty() ? RequestKind::dump
                                           : RequestKind::query;
    servantduty::kind(m_record.kind);
    m_record.object = request.inputFile;
    checkResultFolders(request);
    m_noCached = request.noCached;
    m_fileCount = static_cast<int32_t>(request.files.size());
    m_servedNames += request.inputFile;
    if (request.tags.empty()) {
        convertOrDump(request);
    } else {
        query(request);
    }
}

void VintakServant::convertOrDump(const VintakRequest& request) {
    processOne(request, 0, "", request.verbose);
    std::string dump = m_dump.str();
    if (request.dumponly) takeCharacterSetFromDump(dump);
    sendAnswer(std::move(dump), request.wantWarnings);
}

void VintakServant::query(const VintakRequest& request) {
    m_tags.reset(request);
    int index = 0;
    try {
        for (const std::string& name : request.files) {
            m_servedNames += " " + name;
            processOne(request, index++, name, false);
        }
    } catch (...) {
        // What is beyond the quota is all that the request wrote, not only its last object's files.
        for (int i = 0; m_quota.exceeded() && i < index; ++i)
            filesOf(request, request.files[static_cast<size_t>(i)]).removeAll();
        throw;
    }
    sendAnswer(m_tags.answer(), request.wantWarnings && !request.dumponly);
}

ConversionFiles VintakServant::filesOf(const VintakRequest& request, const std::string& name) {
    ConversionFiles files(request.inputFile + name, m_quota);
    files.outputPrefix = request.outputPrefix + name;
    files.cachePrefix = request.cachePrefix + name;
    files.mask = static_cast<uint32_t>(request.writeMask);
    files.noCached = request.noCached;
    files.specificFrame = request.specificFrame;
    files.part = request.part;
    files.copy = !request.outputPrefix.empty() && !request.noCached && request.specificFrame == 0;
    return files;
}

/// Processes one file of a request, which is not to leave an earlier conversion's files for its own.
void VintakServant::processOne(const VintakRequest& request, int index, const std::string& name,
                               bool verbose) {
    const InStage walking(Stage::walk);
    ConversionFiles files = filesOf(request, name);
    if (request.part.undoes()) {
        files.removeAll();
        return;
    }
    m_files = &files;
    if (!request.dumponly) files.removeEarlierOfObject();
    try {
        processFile(index, request.inputFile, name, request.outputPrefix, request.cachePrefix, verbose,
                    request.dumponly, request.escapeNewLines, request.needOptimize, request.writeMask,
                    request.streamParameter, request.specificFrame);
    } catch (...) {
        if (!request.dumponly) files.abandon();
        m_files = nullptr;
        throw;
    }
    m_files = nullptr;
}

// Nested items may carry a character set of their own; the object's stands before its SOP class.
void VintakServant::takeCharacterSetFromDump(const std::string& dump) {
    constexpr size_t kValueOffset = 15;  // the tag, a blank, the VR, a blank
    const size_t limit = dump.find("(0008,0016)");
    if (limit == std::string::npos) return;
    const size_t found = dump.find("(0008,0005)");
    if (found >= limit) return;
    const size_t start = found + kValueOffset;
    m_characterSet = start < dump.size() ? dump.substr(start, dump.find('\n', start) - start) : "";
}

// Whoever reads the answer up to its NUL finds it as it always was; warnings stand behind, for those who ask.
void VintakServant::sendAnswer(std::string text, bool withWarnings) {
    text += "<<<" + m_characterSet + ">>>";
    if (withWarnings)
        for (const std::string& warning : m_warnings)
            (text += '\0') += warning;
    logStats();
    m_channel->send(text.c_str(), text.size() + 1);
    m_record.fail(m_warnings.empty() ? RequestResult::done : RequestResult::warned, ErrorClass::none, "");
    for (const std::string& warning : m_warnings)
        m_record.cause += (m_record.cause.empty() ? "" : "; ") + warning;
}

void VintakServant::keepWarnings(const CImageProcess& process, const std::string& source) {
    for (const std::string& warning : process.warnings()) {
        OFLOG_WARN(GetQXLogger(),
                   "vintakd warning (" << m_channel->index() << ") " << printable(source) << ": " << warning);
        m_warnings.push_back(warning);
    }
}

// Whoever reads the error up to its NUL finds it as it always was; its class stands behind, for those who
// ask.
void VintakServant::sendError(const std::string& text, ErrorClass kind) {
    m_record.fail(RequestResult::lost, kind, causeOf(text, m_record.object));
    OFLOG_ERROR(GetQXLogger(), "vintakd failed (" << m_channel->index() << ") " << printable(text));
    std::string message = vintakd::VintakProgressMsgs::s_szVintakdError + text;
    if (m_wantsErrorClass) (message += '\0') += nameOf(kind);
    m_channel->send(message.data(), message.size());
    m_record.result = RequestResult::failed;
}

void VintakServant::processFile(int index, const std::string& inputFile, const std::string& fileName,
                                const std::string& outputPrefix, const std::string& cachePrefix, bool verbose,
                                bool dumponly, bool escapeNewLines, bool needOptimize, int writeMask,
                                float streamParameter, int specificFrame) {
    const std::string source = inputFile + fileName;
    const std::string output = outputPrefix + fileName;
    const std::string cache = cachePrefix + fileName;
    servantduty::name(source);
    m_record.object = source;
    m_channel->updateLastCommunication();

    // Whatever the toolkit or the machine throws at an object belongs to this request; only the channel's own
    // exceptions (a keep-alive that did not get through) are not about the object.
    try {
        DcmFileFormat file;
        IncludeList kept = IncludeList::configured();
        const bool keepsForeign = !kept.tags().empty() || m_tags.asksForForeign();
        load(file, source, valuesFor(verbose, dumponly, !m_tags.empty(), keepsForeign), dumponly);
        CServantVintakProcess process(file.getDataset(), verbose, dumponly, escapeNewLines, output.c_str(),
                                      cache.c_str(), specificFrame, this, index);
        if (m_files) process.writeThrough(*m_files);
        if (verbose || dumponly) {
            m_dump.str({});
            process.setOutputStream(&m_dump);
        }
        process.setIncludeList(std::move(kept));
        process.setNeedOptimize(needOptimize);
        process.setWriteMask(static_cast<uint32_t>(writeMask));
        if (streamParameter > 0) process.setStreamParameter(streamParameter);
        runProcess(process, source, index);
        process.finishPack();
        const bool isWhole = specificFrame == 0 && !(m_files && m_files->part.isOfFrames());
        if (!outputPrefix.empty() && !m_noCached && isWhole) {
            const InStage writing(Stage::write);
            saveObject(file, output + ".pdcm", m_quota);
        }
        if (!m_files || !m_files->part.isOfFrames()) ++m_record.files;
        m_pixelsPerFrame = process.attributes().rows * process.attributes().columns;
        m_frameCount += specificFrame > 0 ? 1 : process.attributes().numberOfFrames;
    } catch (const std::bad_alloc&) {
        throw processError(1, source, "out of memory", ErrorClass::memory);
    } catch (const pack::PackError& error) {
        throw processError(1, source, error.what(), ErrorClass::output);
    } catch (const std::exception& error) {
        throw processError(1, source, error.what(),
                           m_quota.exceeded() ? ErrorClass::limit : ErrorClass::object);
    }
}

void VintakServant::load(DcmFileFormat& file, const std::string& source, ObjectValues values, bool dumponly) {
    const InStage loading(Stage::load);
    m_record.bytesRead += sizeOf(source);
    loadObject(file, source, dumponly ? kMaxReadLengthOfDump : kMaxReadLength, values,
               dumponly ? UnknownSyntax::guessed : UnknownSyntax::refused);
    m_transferSyntax = transferSyntaxName(*file.getDataset());
    onObjectLoaded();
    if (const auto refusal = dumponly ? std::nullopt : checkObject(*file.getDataset()))
        throw processError(1, source, *refusal, refusal->kind);
}

void VintakServant::runProcess(CServantVintakProcess& process, const std::string& source, int index) {
    process.registerKeys(m_tags.begin(index), static_cast<int>(m_tags.end() - m_tags.begin(index)));
    m_tags.rewind();
    process.setProgressCallback(this);
    process.setNoCached(m_noCached);
    const int result = process.process();
    if (result != 0) throw processError(result, source, process.failureCause(), process.failureClass());
    keepWarnings(process, source);
}

void VintakServant::onElement(DcmElement* element, int index, const char* value) {
    m_tags.record(element->getTag(), index, value);
}

// Whoever is getting on is not silent: no other client's reservation is to end it.
void VintakServant::onObjectLoaded() {
    m_channel->updateLastCommunication();
}

void VintakServant::onFrameWritten() {
    countWritten(1);
    onImageConverted();
}

void VintakServant::onImageConverted() {
    m_channel->updateLastCommunication();
    const int64_t now = nanoTime();
    if (now - m_lastProgress <= kKeepAliveNanoseconds) return;
    m_channel->send(vintakd::VintakProgressMsgs::s_szVintakdFrame,
                    vintakd::VintakProgressMsgs::s_nVintakdFrame);
    m_lastProgress = now;
}

void VintakServant::clearStats() {
    m_startTime = m_lastProgress = nanoTime();
    m_pixelsPerFrame = 0;
    m_frameCount = 0;
    m_transferSyntax.clear();
    m_servedNames.clear();
}

void VintakServant::logStats() {
    OFLOG_INFO(GetQXLogger(), "vintakd served (" << m_channel->index() << ") " << printable(m_servedNames)
                                                 << " : " << nanoTime() - m_startTime << ";" << m_fileCount
                                                 << ";" << m_frameCount << ";" << m_pixelsPerFrame << ";"
                                                 << m_transferSyntax << ";");
}
