#include "service/start_up.h"

#include "frame/ini_file.h"
#include "frame/log.h"
#include "frame/text.h"

#include <cerrno>

namespace kestrine {

namespace {

constexpr std::string_view g_debugPrefix = "debug=";

} // namespace

int32_t g_debugLevel = 0;

int onlyOneInstance(std::unique_ptr<NamedEvent>* event) {
    std::unique_ptr<NamedEvent> created;
    switch (platform().createNamedEvent(g_instanceName, created)) {
    case NamedEventResult::InitializeDescriptorFailed:
        return LOG_FAIL("InitializeSecurityDescriptor fail errcode %u", platform().lastError());
    case NamedEventResult::SetDaclFailed:
        return LOG_FAIL("SetSecurityDescriptorDacl fail errcode %u", platform().lastError());
    case NamedEventResult::CreateFailed:
        logConsoleFirst(LogLevel::Error, KESTRINE_HERE, "CreateEvent %s failed!", g_instanceName);
        return 1;
    case NamedEventResult::AlreadyExists:
        if (created && created->close() != 0) {
            logConsoleFirst(LogLevel::Error, KESTRINE_HERE, "CloseHandle fail errcode %u",
                            platform().lastError());
        }
        LOG_INFO("another instance is running");
        return -1;
    case NamedEventResult::Created:
        break;
    }
    *event = std::move(created);
    return 0;
}

const char* findDebugArgument(std::span<char* const> arguments) {
    for (size_t i = 1; i < arguments.size(); ++i) {
        if (std::string_view(arguments[i]).starts_with(g_debugPrefix)) {
            return arguments[i];
        }
    }
    return nullptr;
}

int32_t debugLevelOf(std::string_view argument) {
    return leadingInteger(argument.substr(g_debugPrefix.size()));
}

} // namespace kestrine
