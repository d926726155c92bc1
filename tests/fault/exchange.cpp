#include "exchange.h"

#include "vintakd/Gateway.h"
#include "vintakd/ipcexceptions.h"

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
