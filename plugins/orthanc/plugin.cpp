#include <orthanc/OrthancCPlugin.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include "plugins/orthanc/Configuration.h"
#include "plugins/orthanc/InstanceState.h"
#include "plugins/orthanc/SpoolWriter.h"

// A stored instance is written into the spool, in the callback, from the bytes that the callback has: no
// other call into Orthanc is made there, which could wait for a lock that the callback's caller holds. The
// conversion is someone else's.

namespace {

OrthancPluginContext* s_context = nullptr;
Configuration s_configuration;
std::unique_ptr<SpoolWriter> s_writer;

/// No exception may leave into Orthanc.
template <typename Call>
OrthancPluginErrorCode guarded(const Call& call) {
    try {
        call();
        return OrthancPluginErrorCode_Success;
    } catch (const std::exception& error) {
        OrthancPluginLogError(s_context, (std::string("vintakd: ") + error.what()).c_str());
    } catch (...) {
        OrthancPluginLogError(s_context, "vintakd: an exception that nobody knows");
    }
    return OrthancPluginErrorCode_Plugin;
}

// The instance is stored whatever becomes of this: an error here would not take it back.
OrthancPluginErrorCode onStored(const OrthancPluginDicomInstance* instance, const char* id) {
    (void)guarded([&] {
        const int64_t size = OrthancPluginGetInstanceSize(s_context, instance);
        const void* bytes = OrthancPluginGetInstanceData(s_context, instance);
        if (bytes == nullptr || size <= 0) throw std::runtime_error(std::string(id) + ": there are no bytes");
        s_writer->write(std::string(id) + ".dcm", bytes, static_cast<size_t>(size));
    });
    return OrthancPluginErrorCode_Success;
}

/// Puts an instance that Orthanc has into the spool again; the HTTP status.
uint16_t putAgain(const std::string& id) {
    constexpr uint16_t kAccepted = 202, kNotFound = 404;
    OrthancPluginMemoryBuffer buffer{};
    if (OrthancPluginGetDicomForInstance(s_context, &buffer, id.c_str()) != OrthancPluginErrorCode_Success)
        return kNotFound;
    const auto result = guarded([&] { s_writer->write(id + ".dcm", buffer.data, buffer.size); });
    OrthancPluginFreeMemoryBuffer(s_context, &buffer);
    if (result != OrthancPluginErrorCode_Success)
        throw std::runtime_error(id + " was not put into the spool");
    return kAccepted;
}

OrthancPluginErrorCode onRequest(OrthancPluginRestOutput* output, const char* /*url*/,
                                 const OrthancPluginHttpRequest* request) {
    return guarded([&] {
        constexpr uint16_t kNotFound = 404;
        const std::string id = request->groups[0];
        if (request->method == OrthancPluginHttpMethod_Post)
            return OrthancPluginSendHttpStatusCode(s_context, output, putAgain(id));
        if (request->method != OrthancPluginHttpMethod_Get)
            return OrthancPluginSendMethodNotAllowed(s_context, output, "GET,POST");
        const std::string state = stateOf(s_configuration, id);
        if (state.empty()) return OrthancPluginSendHttpStatusCode(s_context, output, kNotFound);
        OrthancPluginAnswerBuffer(s_context, output, state.c_str(), static_cast<uint32_t>(state.size()),
                                  "application/json");
    });
}

void start() {
    char* json = OrthancPluginGetConfiguration(s_context);
    if (json == nullptr) throw std::runtime_error("there is no configuration");
    const std::string text = json;
    OrthancPluginFreeString(s_context, json);
    s_configuration = Configuration::read(text);
    s_writer = std::make_unique<SpoolWriter>(
        s_configuration.spool + (s_configuration.priority ? "/incoming/priority" : "/incoming"),
        s_configuration.sync);
    OrthancPluginRegisterOnStoredInstanceCallback(s_context, onStored);
    // Orthanc's identifiers are five words of hexadecimal digits: nothing else gets as far as a path.
    OrthancPluginRegisterRestCallbackNoLock(s_context, "/vintakd/instances/([0-9a-f]{8}(?:-[0-9a-f]{8}){4})",
                                            onRequest);
}

}  // namespace

extern "C" {

ORTHANC_PLUGINS_API int32_t OrthancPluginInitialize(OrthancPluginContext* context) {
    s_context = context;
    if (OrthancPluginCheckVersion(context) == 0) {
        OrthancPluginLogError(context, "vintakd: this Orthanc is older than the plug-in was built for");
        return -1;
    }
    OrthancPluginSetDescription(context, "Hands stored instances to the spool of vintakd");
    return guarded(start) == OrthancPluginErrorCode_Success ? 0 : -1;
}

ORTHANC_PLUGINS_API void OrthancPluginFinalize() {
    s_writer.reset();
}

ORTHANC_PLUGINS_API const char* OrthancPluginGetName() {
    return "vintakd";
}

ORTHANC_PLUGINS_API const char* OrthancPluginGetVersion() {
    return VINTAKD_VERSION;
}
}
