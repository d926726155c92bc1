#include "tools/command/Program.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <cstdio>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "hsutils/StandardFiles.h"
#include "hsutils/Utils.h"
#include "tools/command/CommandLine.h"
#include "tools/command/Session.h"
#include "tools/exitcodes.h"

int programMain(int argc, char* argv[], const std::function<int(const std::vector<std::string>&)>& answer) {
    const StandardFiles standardFiles;
    // The library's log is for services; here every failure is told in words of our own.
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    try {
        const int status = answer({argv + 1, argv + argc});
        std::cout.flush();
        if (!std::cout || fflush(stdout) != 0 || ferror(stdout) != 0)
            throw std::runtime_error("the output could not be written");
        return status;
    } catch (const UsageError& error) {
        std::cerr << "vintak: " << printable(error.what()) << " (vintak --help)\n";
        return kUsageError;
    } catch (const NoDaemon& error) {
        std::cerr << "vintak: " << printable(error.what()) << "\n";
        return kNoDaemon;
    } catch (const NotAllowed& error) {
        std::cerr << "vintak: " << printable(error.what()) << "\n";
        return kNotAllowed;
    } catch (const std::exception& error) {
        std::cerr << "vintak: " << printable(error.what()) << "\n";
        return kAllFailed;
    }
}
