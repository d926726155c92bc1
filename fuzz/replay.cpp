// The main program of a target that is built without libFuzzer: runs the inputs that it is given, under
// valgrind for instance, which sees what the toolkit's uninstrumented decoders read.
//
//     TARGET [--mutants N] FILE...   N changed inputs for each file (their random numbers always the same)
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

/// A few of: bytes changed, bits turned over, numbers of extremes, a cut end, a piece repeated or left out.
Bytes mutant(Bytes bytes, std::mt19937& random) {
    const auto below = [&random](size_t limit) { return limit == 0 ? 0 : random() % limit; };
    for (size_t change = 0, changes = 1 + below(6); change < changes && !bytes.empty(); ++change) {
        const size_t at = below(bytes.size());
        const size_t count = std::min<size_t>(1 + below(8), bytes.size() - at);
        switch (below(6)) {
            case 0:
                bytes[at] = static_cast<uint8_t>(random());
                break;
            case 1:
                bytes[at] ^= static_cast<uint8_t>(1U << below(8));
                break;
            case 2:
                std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(at), count, below(2) == 0 ? 0 : 0xFF);
                break;
            case 3:
                if (below(4) == 0) bytes.resize(at);
                break;
            case 4:
                bytes.insert(bytes.begin() + static_cast<ptrdiff_t>(at),
                             bytes.end() - static_cast<ptrdiff_t>(count), bytes.end());
                break;
            default:
                bytes.erase(bytes.begin() + static_cast<ptrdiff_t>(at),
                            bytes.begin() + static_cast<ptrdiff_t>(at + count));
                break;
        }
    }
    return bytes;
}

/// The input that is running, for whoever looks at a crash.
void keep(const Bytes& bytes) {
    const char* path = std::getenv("REPLAY_CURRENT");
    if (path == nullptr) return;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
    int first = 1, mutants = 0;
    if (argc > 2 && std::strcmp(argv[1], "--mutants") == 0) {
        // NOLINTNEXTLINE(cert-err34-c): typed by whoever looks for a fault
        mutants = std::atoi(argv[2]);
        first = 3;
    }
    std::mt19937 random(20260101);
    size_t runs = 0;
    for (int i = first; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
        for (int k = 0; k < std::max(mutants, 1); ++k, ++runs) {
            const Bytes input = mutants > 0 ? mutant(bytes, random) : bytes;
            keep(input);
            LLVMFuzzerTestOneInput(input.data(), input.size());
        }
    }
    std::printf("%zu inputs\n", runs);
    return 0;
}
