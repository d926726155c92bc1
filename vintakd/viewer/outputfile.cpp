#include "vintakd/viewer/outputfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "hsutils/Utils.h"
#include "imgproc/imageprocess.h"
#include "imgproc/operationallog.h"

namespace {

// Headers and payloads of a frame's files are written in pieces; most files fit into one buffer, and the
// pieces of larger ones go to the file in few calls.
constexpr size_t kBufferSize = size_t{1} << 16;

}  // namespace

int closeOrRemove(std::FILE* file, const std::string& path, int error) {
    struct stat written {};
    struct stat named {};
    const bool regular = fstat(fileno(file), &written) == 0 && S_ISREG(written.st_mode);
    if (error == 0 && std::ferror(file) != 0) error = EIO;
    if (std::fclose(file) != 0 && error == 0) error = errno;
    if (error != 0 && regular && lstat(path.c_str(), &named) == 0 && named.st_dev == written.st_dev &&
        named.st_ino == written.st_ino) {
        unlink(path.c_str());
    }
    return error;
}

bool OutputFile::open(std::string path) {
    close();
    m_path = std::move(path);
    m_file = std::fopen(m_path.c_str(), "wb");
    if (!m_file) {
        report("Cannot create file: ", errno, Loss::failsConversion);
        return false;
    }
    if (!m_buffer) m_buffer = std::make_unique_for_overwrite<char[]>(kBufferSize);
    std::setvbuf(m_file, m_buffer.get(), _IOFBF, kBufferSize);
    m_error = errno = 0;
    return true;
}

void OutputFile::noteError() {
    if (m_file && m_error == 0 && std::ferror(m_file) != 0) m_error = errno;
}

void OutputFile::dropEmpty() {
    if (m_file && std::ferror(m_file) == 0 && std::ftell(m_file) == 0)
        closeOrRemove(std::exchange(m_file, nullptr), m_path, ECANCELED);
}

bool OutputFile::close() {
    if (!m_file) return true;
    noteError();
    const int error = closeOrRemove(std::exchange(m_file, nullptr), m_path, m_error);
    if (error != 0) report("Error writing file: ", error, m_loss);
    return error == 0;
}

void OutputFile::report(const char* action, int error, Loss loss) {
    std::string cause = action + m_path + " (" + std::strerror(error) + ")";
    OFLOG_ERROR(operationalLogger(), printable(cause));
    if (loss == Loss::failsConversion) m_process.reportFailure(std::move(cause), ErrorClass::output);
}
