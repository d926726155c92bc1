#include "tools/picture/commandwords.h"

#include <boost/program_options.hpp>
#include <iostream>
#include <new>

#include "tools/exitcodes.h"
#include "tools/picture/files.h"

namespace picture {

namespace po = boost::program_options;

bool parseWords(const std::vector<std::string>& args, const CommandHelp& help, CommandWords& words,
                int& exitCode) {
    po::options_description options("Options");
    options.add_options()("help,h", "print this text");
    options.add_options()("desc", po::value(&words.desc)->value_name("FILE"),
                          "the .desc file, when it is not beside the frame's files");
    if (!help.writesPicture) {
        options.add_options()("syntaxes", po::bool_switch(&words.syntaxes),
                              "print the transfer syntaxes that are read, by UID and name");
    } else {
        options.add_options()("output,o", po::value(&words.output)->value_name("PICTURE.png"),
                              "write the picture, or all pictures side by side");
        options.add_options()(
            "reduce", po::value(&words.reduce)->value_name("R"),
            "decode streams to 1/2^R of their width and height (0 to 8), which takes the memory "
            "and time of that size alone");
    }
    po::options_description all = options;
    all.add_options()("files", po::value(&words.files));
    try {
        po::variables_map values;
        po::store(po::command_line_parser(args)
                      .options(all)
                      .positional(po::positional_options_description().add("files", -1))
                      .run(),
                  values);
        po::notify(values);
        if (values.count("help") != 0) {
            std::cout << "Usage: vintak " << help.usage << "\n\n" << help.about << "\n\n" << options;
            exitCode = kAllDone;
            return false;
        }
    } catch (const po::error& error) {
        std::cerr << "vintak: " << error.what() << " (Usage: vintak " << help.usage << ")\n";
        exitCode = kUsageError;
        return false;
    }
    if (words.reduce < 0 || words.reduce > 8) {
        std::cerr << "vintak: --reduce takes 0 to 8 (Usage: vintak " << help.usage << ")\n";
        exitCode = kUsageError;
        return false;
    }
    if (!words.files.empty() || words.syntaxes) return true;
    std::cerr << "vintak: no file is named (Usage: vintak " << help.usage << ")\n";
    exitCode = kUsageError;
    return false;
}

size_t forEachFile(const std::vector<std::string>& files,
                   const std::function<void(const std::string&)>& action) {
    size_t failed = 0;
    for (const std::string& file : files) {
        try {
            action(file);
        } catch (const PictureError& error) {
            std::cerr << file << ": " << error.what() << "\n";
            ++failed;
        } catch (const std::bad_alloc&) {
            std::cerr << file << ": not enough memory\n";
            ++failed;
        }
    }
    return failed;
}

}  // namespace picture
