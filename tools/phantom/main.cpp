#include <boost/program_options.hpp>
#include <exception>
#include <iostream>
#include <string>

#include "tools/phantom/phantomobject.h"

namespace po = boost::program_options;

int main(int argc, char* argv[]) {
    PhantomOptions options;
    std::string path;
    po::options_description description("vintak-phantom FILE [options]");
    description.add_options()("help,h", "show this help")("file", po::value(&path),
                                                          "where to write the object")(
        "frames", po::value(&options.frames)->default_value(options.frames), "number of frames, 1 to 65535")(
        "size", po::value(&options.size)->default_value(options.size), "rows and columns, 1 to 65535");
    po::positional_options_description positions;
    positions.add("file", 1);
    try {
        po::variables_map values;
        po::store(po::command_line_parser(argc, argv).options(description).positional(positions).run(),
                  values);
        po::notify(values);
        if (values.count("help")) {
            std::cout << description << std::flush;
            return 0;
        }
        if (path.empty() || options.frames - 1 > 65534u || options.size - 1 > 65534u)
            throw po::error("see --help");
        writePhantom(path, options);
    } catch (const std::exception& error) {
        std::cerr << "vintak-phantom: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
