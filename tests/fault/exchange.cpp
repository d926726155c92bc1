#include "tests/fault/exchange.h"

#include "vintakd/ipc/Gateway.h"
#include "vintakd/ipc/ipcexceptions.h"

std::string failureOf(const std::function<void()>& call) {
    try {
        call();
        return "";
    } catch (const TimeoutException&) {
        return "time-out";
    } catch (const ConnectionTimeoutException&) {
        return "no channel";
    } catch (const ipc::UserException&) {
        return "error notice";
    } catch (const ipc::CommunicationMismatchException&) {
        return "clash";
    }
}
