// Writes the corpus that the fuzz targets start from: fuzz_seeds FOLDER makes a folder for each target in it.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <cstdio>
#include <exception>
#include <filesystem>

#include "fuzz/seedwriter.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    OFLog::configure(OFLogger::ERROR_LOG_LEVEL);
    try {
        const SeedWriter writer(argv[1]);
        writeRequestSeeds(writer);
        writeConfigurationSeeds(writer);
        writeChannelSeeds(writer);
        writeStreamSeeds(writer);
        writePrivateSeeds(writer);
        writeObjectSeeds(writer);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fuzz_seeds: %s\n", error.what());
        return 1;
    }
}
