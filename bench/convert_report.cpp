// Where a conversion's processor time goes: all files of one object by one warm servant, stage by stage,
// beside the bare encoding of its frame and the bare writing of the same bytes. VINTAKD_BENCH_OBJECT names
// the object (of one grey frame), VINTAKD_BENCH_FOLDER where the files are to go, for a while some hundred
// megabytes. Every conversion writes names of its own, and none is removed before the end: a file system
// spends long on names and inodes that it has just given up. For the same reason a second run, or one on a
// file system that others have just removed files from, measures that search: a fresh file system tells the
// truth.

#include <fcntl.h>
#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench/pool_process.h"
#include "hsutils/StageClock.h"
#include "tools/phantom/phantomobject.h"
#include "vintakd/pool/SharedArray.h"
#include "vintakd/service/VintakServant.h"
#include "vintakd/viewer/streamelements.h"
#include "vintakd/viewer/thumbnails.h"
#include "vintakd/vintakd_if.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRounds = 5;
constexpr int kConversions = 200;

int64_t threadTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

using StageTimes = std::array<std::atomic<int64_t>, kStages>;
SharedArray<StageTimes>* s_times = nullptr;

/// Adds its stages up where the benchmark sees them.
class MeasuredServant : public VintakServant {
public:
    MeasuredServant() { stageClock().useClock(threadTime); }
    void serve(ipc::Channel& channel) override {
        VintakServant::serve(channel);
        for (size_t i = 0; i < kStages; ++i)
            (*s_times)[0][i] += stageClock().times()[i];
    }
};

/// What a process has used.
struct Usage {
    double milliseconds = 0, userTicks = 0, kernelTicks = 0, faults = 0;

    static Usage of(pid_t pid) {
        clockid_t clock{};
        timespec used{};
        if (clock_getcpuclockid(pid, &clock) == 0) clock_gettime(clock, &used);
        std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
        const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        std::istringstream fields(text.substr(text.rfind(')') + 1));
        std::vector<std::string> field((std::istream_iterator<std::string>(fields)),
                                       std::istream_iterator<std::string>());
        field.resize(20, "0");
        return {static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6,
                std::stod(field[11]), std::stod(field[12]), std::stod(field[7])};
    }
};

class Workplace {
public:
    Workplace() {
        const char* folder = getenv("VINTAKD_BENCH_FOLDER");
        m_path = fs::absolute(folder ? folder : ".") / ("convert_report." + std::to_string(getpid()));
        fs::create_directories(m_path);
        const char* named = getenv("VINTAKD_BENCH_OBJECT");
        const fs::path object = named ? named : VINTAKD_CORPUS_DIR "/WG04_CT1_UNC.dcm";
        if (fs::exists(object))
            fs::copy_file(object, input());
        else
            writePhantom(input(), {1, 512});
        printf("%s, all files into %s\n", fs::exists(object) ? object.filename().c_str() : "a phantom",
               m_path.parent_path().c_str());
        (void)fflush(stdout);  // before processes are forked that would print it too
    }
    ~Workplace() { fs::remove_all(m_path); }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;

    std::string input() const { return m_path / "in.dcm"; }
    /// A folder that nobody has used.
    std::string folder() {
        const fs::path path = m_path / std::to_string(m_folders++);
        fs::create_directory(path);
        return path;
    }

private:
    fs::path m_path;
    int m_folders = 0;
};

void convert(Gateway& gateway, const std::string& input, const std::string& output) {
    constexpr int kAllFiles = 3;
    vintakd::vintak(gateway, input.c_str(), output.c_str(), output.c_str(), false, false, false, true, false,
                    0, 0, nullptr, 0, nullptr, kAllFiles, 0, 0);
}

/// Smallest of some rounds' mean, in ms of the thread's time.
template <class Work>
double bestOf(Work work) {
    double best = 1e9;
    for (int round = 0; round < kRounds; ++round) {
        const int64_t start = threadTime();
        for (int i = 0; i < kConversions; ++i)
            work(round * kConversions + i);
        best = std::min(best, static_cast<double>(threadTime() - start) / 1e6 / kConversions);
    }
    return best;
}

struct Measured {
    double total = 1e9;
    std::array<double, kStages> stages{};
    double faults = 0;
    double kernelShare = 0;
};

Measured measure(Workplace& workplace, bool sameNames) {
    PoolProcess<MeasuredServant> pool(1);
    const pid_t servant = pool.gateway().snapshot()[0].servantPid;
    std::string folder = workplace.folder();
    for (int i = 0; i < 50; ++i)
        convert(pool.gateway(), workplace.input(), folder + "/warm" + std::to_string(sameNames ? 0 : i));
    Measured best;
    double user = 0, kernel = 0;
    for (int round = 0; round < kRounds - 1; ++round) {  // a servant retires after a thousand requests
        if (!sameNames) folder = workplace.folder();
        for (auto& stage : (*s_times)[0])
            stage = 0;
        const Usage before = Usage::of(servant);
        for (int i = 0; i < kConversions; ++i)
            convert(pool.gateway(), workplace.input(), folder + "/" + std::to_string(sameNames ? 0 : i));
        const Usage after = Usage::of(servant);
        user += after.userTicks - before.userTicks;
        kernel += after.kernelTicks - before.kernelTicks;
        const double total = (after.milliseconds - before.milliseconds) / kConversions;
        if (total >= best.total) continue;
        best.total = total;
        best.faults = (after.faults - before.faults) / kConversions;
        for (size_t i = 0; i < kStages; ++i)
            best.stages[i] = static_cast<double>((*s_times)[0][i]) / 1e6 / kConversions;
    }
    best.kernelShare = kernel / std::max(1.0, user + kernel);
    return best;
}

/// What one conversion leaves: the sizes of its files, and its frame as the coders get it.
struct Result {
    std::vector<uintmax_t> sizes;
    std::vector<char> pixels;
    FramePixels frame;

    explicit Result(const std::string& prefix) {
        for (const auto& entry : fs::directory_iterator(fs::path(prefix).parent_path()))
            sizes.push_back(entry.file_size());
        std::ifstream raw(prefix + "_1.raw", std::ios::binary);
        pixels.assign(std::istreambuf_iterator<char>(raw), std::istreambuf_iterator<char>());
        std::ifstream description(prefix + ".desc");
        int number = 0, width = 0;
        std::string layout;
        description >> number >> frame.columns >> frame.rows >> layout >> width >> frame.bitsUsed;
        frame.data = pixels.data();
        frame.size = static_cast<unsigned int>(pixels.size());
        frame.bytesPerPixel = static_cast<int>(pixels.size() / (size_t(frame.columns) * frame.rows));
    }
};

double bareEncode(const Result& result, const dvq::kelt4::Kernel& kernel) {
    const FramePixels& frame = result.frame;
    return bestOf([&](int) {
        CVintak_CKeltCompressor compressor(frame.data, frame.bytesPerPixel, frame.bitsUsed, frame.columns,
                                           frame.rows, kernel);
        if (compressor.compress(0) != 0) abort();
    });
}

double bareThumbnail(const Result& result) {
    FILE* nowhere = fopen("/dev/null", "wb");
    OutputQuota quota;
    std::string cause;
    const double time =
        bestOf([&](int) { writeThumbnail(result.frame, "CT", nowhere, nowhere, quota, cause); });
    (void)fclose(nowhere);
    return time;
}

double bareWriting(const Result& result, Workplace& workplace) {
    const std::string folder = workplace.folder();
    const std::vector<char> bytes(*std::max_element(result.sizes.begin(), result.sizes.end()), 'b');
    return bestOf([&](int number) {
        for (size_t i = 0; i < result.sizes.size(); ++i) {
            const std::string path = folder + "/" + std::to_string(number) + "." + std::to_string(i);
            const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
            if (write(file, bytes.data(), result.sizes[i]) != static_cast<ssize_t>(result.sizes[i])) abort();
            close(file);
        }
    });
}

void print(const char* what, double milliseconds) {
    printf("  %-44s %7.3f\n", what, milliseconds);
}

/// The bare encoding by each kernel of this processor, and how often the conversion holds it: a faster coder
/// makes the conversion shorter and this figure larger.
void printBareEncodes(const Result& result, double conversion) {
    for (const dvq::kelt4::Kernel& kernel : dvq::kelt4::availableKernels()) {
        if (kernel.encode == nullptr) continue;
        const bool inUse = kernel.name == dvq::kelt4::activeKernelName();
        const double encode = bareEncode(result, kernel);
        printf("  bare encode, %-31s %7.3f  a conversion is %.2f\n",
               (std::string(kernel.name) + (inUse ? " (in use)" : "")).c_str(), encode, conversion / encode);
    }
}

}  // namespace

int main() {
    VintakServant::prepareProcess();
    SharedArray<StageTimes> times(1, "the stages");
    s_times = &times;
    Workplace workplace;
    const Measured fresh = measure(workplace, false);
    const Measured again = measure(workplace, true);
    const std::string folder = workplace.folder();
    {
        PoolProcess<VintakServant> pool(1);
        convert(pool.gateway(), workplace.input(), folder + "/one");
    }
    const Result result(folder + "/one");
    const double writing = bareWriting(result, workplace);

    printf("processor time of the servant in ms a conversion, best of %d times %d\n", kRounds - 1,
           kConversions);
    double rest = fresh.total;
    for (size_t i = 0; i < kStages; ++i) {
        print(nameOf(static_cast<Stage>(i)), fresh.stages[i]);
        rest -= fresh.stages[i];
    }
    print("exchange, log, memory given back", rest);
    print("together", fresh.total);
    print("  in the kernel", fresh.total * fresh.kernelShare);
    printf("  %-44s %7.1f\n", "page faults", fresh.faults);
    print("together, over the files of the one before", again.total);
    print("  in the kernel", again.total * again.kernelShare);
    printBareEncodes(result, fresh.total);
    print("bare thumbnail", bareThumbnail(result));
    print("bare writing of the same bytes", writing);
    printf("  the conversion's kernel part is %.2f bare writings\n",
           fresh.total * fresh.kernelShare / writing);
}
