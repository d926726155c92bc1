#include "vintakd/service/objectsaver.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcostrma.h>
#include <dcmtk/dcmdata/dcwcache.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "hsutils/ClassedError.h"
#include "imgproc/objectsyntax.h"
#include "vintakd/viewer/outputfile.h"

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& cause,
                       ErrorClass kind = ErrorClass::output) {
    throw ClassedError("Error writing file: " + path + ": " + cause, kind);
}

/// The end of the toolkit's output chain: a file whose first error is kept, and that is there in the end only
/// when it is whole.
class FileEnd : public DcmConsumer {
public:
    FileEnd(const std::string& path, OutputQuota& quota)
        : m_path(path), m_quota(quota), m_file(fopen(path.c_str(), "wb")) {
        if (!m_file) m_error = errno;
    }
    ~FileEnd() override {
        if (m_file) closeOrRemove(m_file, m_path, ECANCELED);
    }

    OFBool good() const override { return m_error == 0; }
    OFCondition status() const override { return good() ? EC_Normal : EC_InvalidStream; }
    OFBool isFlushed() const override { return OFTrue; }
    offile_off_t avail() const override { return std::numeric_limits<offile_off_t>::max(); }
    void flush() override {}

    offile_off_t write(const void* bytes, offile_off_t size) override {
        if (!m_file || m_error != 0) return 0;
        try {
            m_quota.take(static_cast<uint64_t>(size));
        } catch (const std::runtime_error& refusal) {  // not through the toolkit
            m_refusal = refusal.what();
            m_error = EDQUOT;
            return 0;
        }
        const size_t written = fwrite(bytes, 1, static_cast<size_t>(size), m_file);
        if (written < static_cast<size_t>(size)) m_error = errno;
        return static_cast<offile_off_t>(written);
    }

    /// What the system or the quota says about the first error.
    std::string cause() const { return m_refusal.empty() ? std::strerror(m_error) : m_refusal; }

    /// Writes out what is buffered; the first error of all writes, 0 for none.
    int close() {
        m_error = closeOrRemove(std::exchange(m_file, nullptr), m_path, m_error);
        return m_error;
    }

private:
    const std::string& m_path;
    OutputQuota& m_quota;
    FILE* m_file;
    int m_error = 0;
    std::string m_refusal;
};

class FileStream : public DcmOutputStream {
public:
    explicit FileStream(FileEnd& end) : DcmOutputStream(&end) {}
    ~FileStream() override { flush(); }
};

/// A transfer syntax that the toolkit does not know it would replace in the meta header: such a header is
/// made and written here, before the data set.
OFCondition write(DcmFileFormat& file, DcmOutputStream& stream) {
    DcmWriteCache cache;
    DcmDataset& dataset = *file.getDataset();
    const E_TransferSyntax xfer = dataset.getOriginalXfer();
    const TransferSyntax* syntax = highThroughputOf(dataset);
    if (!syntax)
        return file.write(stream, xfer, EET_UndefinedLength, &cache, EGL_recalcGL, EPD_noChange, 0, 0, 0,
                          EWM_createNewMeta);
    OFCondition result = file.validateMetaInfo(xfer, EWM_createNewMeta);
    if (result.bad()) return result;
    DcmMetaInfo& meta = *file.getMetaInfo();
    meta.putAndInsertString(DCM_TransferSyntaxUID, std::string(syntax->uid).c_str());
    meta.computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange, META_HEADER_DEFAULT_TRANSFERSYNTAX,
                                      EET_UndefinedLength);
    result = meta.write(stream, META_HEADER_DEFAULT_TRANSFERSYNTAX, EET_UndefinedLength, &cache);
    if (result.bad()) return result;
    return dataset.write(stream, xfer, EET_UndefinedLength, &cache, EGL_recalcGL, EPD_noChange);
}

}  // namespace

void saveObject(DcmFileFormat& file, const std::string& path, OutputQuota& quota) {
    FileEnd end(path, quota);
    if (!end.good()) fail(path, end.cause());
    OFCondition written;
    {
        FileStream stream(end);
        file.transferInit();
        written = write(file, stream);
        file.transferEnd();
    }
    if (written.bad() && end.good()) fail(path, written.text());
    if (end.close() != 0) fail(path, end.cause(), quota.exceeded() ? ErrorClass::limit : ErrorClass::output);
}
