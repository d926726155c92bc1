#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>

#include "hsutils/Utils.h"
#include "vintakd/ipc/GatewayBase.h"
#include "vintakd/ipc/VintakLog.h"

namespace {

const char* stateName(ChannelState state) {
    switch (state) {
        case ChannelState::free:
            return "free";
        case ChannelState::connected:
            return "connected";
        case ChannelState::purging:
            return "purging";
    }
    return "unknown";
}

std::string dumpFileName() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[80];
    snprintf(stamp, sizeof stamp, "%04d-%02d-%02d_%02d%02d%02d.%ld", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<long>(now.tv_usec));
    const char* directory = getenv("TMP");
    return std::string(directory ? directory : "/tmp") + "/vintakd_mem." + stamp + "." +
           std::to_string(getpid()) + "." + std::to_string(mygettid());
}

}  // namespace

void GatewayBase::printTable() {
    const auto lock = lockTable();
    std::cout << m_header->channelCount << " pieces of " << m_header->channelSize
              << " bytes sized channels.\n";
    for (size_t i = 0; i < m_channels.size(); ++i) {
        const ChannelEntry& slot = m_table[i];
        std::cout << "  " << i << ": server(" << slot.servantPid << ") " << stateName(slot.state);
        if (slot.state == ChannelState::connected) {
            const timeval last = m_channels[i]->getLastCommunication();
            std::cout << " " << last.tv_sec << "." << last.tv_usec << " (client pid/tid: " << slot.clientPid
                      << "/" << slot.clientThreadId << ")";
        }
        std::cout << "\n";
    }
    std::cout.flush();
}

void GatewayBase::dump() {
    const std::string path = dumpFileName();
    printNow(std::cerr) << "Dump shared memory to " << path << std::endl;
    dumpTo(path.c_str());
}

void GatewayBase::dumpTo(const char* path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(m_base, static_cast<std::streamsize>(m_region.get_size()));
}
