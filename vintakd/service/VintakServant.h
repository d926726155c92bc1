#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "hsutils/errorclass.h"
#include "imgproc/imageprocess.h"
#include "vintakd/pool/RequestRecord.h"
#include "vintakd/pool/Servant.h"
#include "vintakd/service/TagTable.h"
#include "vintakd/service/VintakRequest.h"
#include "vintakd/service/objectloader.h"
#include "vintakd/viewer/conversionfiles.h"

class CServantVintakProcess;

/// The conversion servant: one per servant process. Reads one request, converts, dumps or queries, and sends
/// exactly one final message: the answer, "PONG", or an error. Sends a keep-alive between frames when ten
/// seconds have passed.
class VintakServant : public Servant, public IImageProcessProgress {
public:
    /// The slow part of making a servant (dictionaries), done once in the daemon before the servants are
    /// forked. Throws std::runtime_error when the toolkit has no data dictionary, std::invalid_argument for
    /// an unusable VINTAKD_KELT_KERNEL.
    static void prepareProcess();

    /// Handles one request. Whatever goes wrong with it becomes the error answer; only failures of the
    /// channel itself (TimeoutException, CommunicationMismatchException) are logged and passed on.
    void serve(ipc::Channel& channel) override;

    /// Loads and processes one file: prefix + `fileName` for input, output and cache. Throws
    /// VintakdErrorException.
    virtual void processFile(int index, const std::string& inputFile, const std::string& fileName,
                             const std::string& outputPrefix, const std::string& cachePrefix, bool verbose,
                             bool dumponly, bool escapeNewLines, bool needOptimize, int writeMask,
                             float streamParameter, int specificFrame);

    /// Records the value of a requested element in file `index`.
    void onElement(DcmElement* element, int index, const char* value);
    void onCharacterSet(const std::string& value) { m_characterSet = value; }
    void onObjectLoaded();

    void onImageConverted() override;
    void onFrameWritten() override;

    /// One line about what was served, and the start of the next one's figures.
    void logStats();
    void clearStats();

private:
    void answerRequest(const ipc::Message& message);
    void convertOrDump(const VintakRequest& request);
    void query(const VintakRequest& request);
    ConversionFiles filesOf(const VintakRequest& request, const std::string& name);
    void processOne(const VintakRequest& request, int index, const std::string& name, bool verbose);
    void takeCharacterSetFromDump(const std::string& dump);
    void load(DcmFileFormat& file, const std::string& source, bool verbose, bool dumponly,
              ObjectValues forConversion);
    void runProcess(CServantVintakProcess& process, const std::string& source, int index);
    void keepWarnings(const CImageProcess& process, const std::string& source);
    void sendAnswer(std::string text, bool withWarnings);
    /// Logs and sends: `text` names the object and the cause.
    void sendError(const std::string& text, ErrorClass kind);
    /// Serves one request and notes in the record what became of it.
    void serveRequest();
    void account();
    void countWritten(uint64_t frames);

    std::ostringstream m_dump;
    TagTable m_tags;
    ipc::Channel* m_channel = nullptr;
    bool m_noCached = false;
    bool m_wantsErrorClass = false;
    std::string m_characterSet;
    std::vector<std::string> m_warnings;  ///< of the objects converted for the request
    OutputQuota m_quota;                  ///< of the current request
    ConversionFiles* m_files = nullptr;   ///< of the file in work

    RequestRecord m_record;       ///< of the current request
    uint64_t m_writtenBytes = 0;  ///< what is counted of the quota

    // Figures of the current request.
    int64_t m_startTime = 0;
    int64_t m_lastProgress = 0;
    int32_t m_fileCount = 0;
    int32_t m_pixelsPerFrame = 0;
    int32_t m_frameCount = 0;
    std::string m_transferSyntax;
    std::string m_servedNames;
};
