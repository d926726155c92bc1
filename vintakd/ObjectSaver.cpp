#include "vintakd/ObjectSaver.h"

#include <dcmtk/dcmdata/dcostrma.h>
#include <dcmtk/dcmdata/dcwcache.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include "hsutils/VintakdErrorException.h"

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& cause) {
    throw VintakdErrorException("Error writing file: " + path + ": " + cause);
}

/// The end of the toolkit's output chain: a file whose first error is kept.
class FileEnd : public DcmConsumer {
public:
    explicit FileEnd(const std::string& path) : m_file(fopen(path.c_str(), "wb")) {
        if (!m_file) m_error = errno;
    }
    ~FileEnd() override { close(); }

    OFBool good() const override { return m_error == 0; }
    OFCondition status() const override { return good() ? EC_Normal : EC_InvalidStream; }
    OFBool isFlushed() const override { return OFTrue; }
    offile_off_t avail() const override { return std::numeric_limits<offile_off_t>::max(); }
    void flush() override {}

    offile_off_t write(const void* bytes, offile_off_t size) override {
        if (!m_file || m_error != 0) return 0;
        const size_t written = fwrite(bytes, 1, static_cast<size_t>(size), m_file);
        if (written < static_cast<size_t>(size)) m_error = errno;
        return static_cast<offile_off_t>(written);
    }

    /// Writes out what is buffered; the first error of the whole file, 0 for none.
    int close() {
        if (m_file && fclose(m_file) != 0 && m_error == 0) m_error = errno;
        m_file = nullptr;
        return m_error;
    }

private:
    FILE* m_file;
    int m_error = 0;
};

class FileStream : public DcmOutputStream {
public:
    explicit FileStream(FileEnd& end) : DcmOutputStream(&end) {}
    ~FileStream() override { flush(); }
};

}  // namespace

void saveObject(DcmFileFormat& file, const std::string& path) {
    FileEnd end(path);
    if (!end.good()) fail(path, std::strerror(end.close()));
    OFCondition written;
    {
        FileStream stream(end);
        DcmWriteCache cache;
        file.transferInit();
        written = file.write(stream, file.getDataset()->getOriginalXfer(), EET_UndefinedLength, &cache,
                             EGL_recalcGL, EPD_noChange, 0, 0, 0, EWM_createNewMeta);
        file.transferEnd();
    }
    if (const int error = end.close()) fail(path, std::strerror(error));
    if (written.bad()) fail(path, written.text());
}
