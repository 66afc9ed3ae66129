// The service manager: the state of a service that it runs, and the registration of services.
//
// Of a service it starts the process, which then
//   1. asks for its requests on the main thread (runAsService), which stays with that
//   2. is called back on another thread (serviceMain), which says that it is starting
//   3. runs the body there, which tells that it is ready
//   4. says with which code it has stopped; after that the process may end at any moment
#include "platform/service_manager.h"
#include "platform/system_windows.h"

#include <winsvc.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <mutex>

namespace kestrine {

namespace {

constexpr DWORD g_waitHint = 120000;     // ms within which the next sign of life comes
constexpr DWORD g_restartDelay = 60000;  // ms
constexpr DWORD g_failureMemory = 86400; // s without a failure after which it counts anew

// In the order in which a service passes through them; it never goes back.
enum class Phase { None, Starting, Running, Stopping, Stopped };

class ServiceState {
public:
    void setHandle(SERVICE_STATUS_HANDLE handle) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_handle = handle;
    }
    // Tells the phase, once; a phase that was passed, as by a request that came last, is not told.
    [[nodiscard]] int enter(Phase phase, int code = 0) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_handle == nullptr || phase <= m_phase) {
            return 0;
        }
        m_phase = phase;
        m_checkPoint = 0;
        return report(code);
    }
    // In the phases that the manager waits for it wants to see a number grow.
    [[nodiscard]] int sign() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_phase != Phase::Starting && m_phase != Phase::Stopping) {
            return 0;
        }
        ++m_checkPoint;
        return report(0);
    }

private:
    [[nodiscard]] int report(int code) {
        SERVICE_STATUS status{};
        status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
        status.dwCurrentState = systemState();
        // Not before the handler stands, and not twice.
        status.dwControlsAccepted =
            m_phase == Phase::Running ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
        status.dwWin32ExitCode = code == 0 ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
        status.dwServiceSpecificExitCode = static_cast<DWORD>(code);
        if (m_phase == Phase::Starting || m_phase == Phase::Stopping) {
            status.dwCheckPoint = m_checkPoint + 1;
            status.dwWaitHint = g_waitHint;
        }
        return SetServiceStatus(m_handle, &status) ? 0 : fail();
    }
    [[nodiscard]] DWORD systemState() const {
        switch (m_phase) {
        case Phase::Starting:
            return SERVICE_START_PENDING;
        case Phase::Running:
            return SERVICE_RUNNING;
        case Phase::Stopping:
            return SERVICE_STOP_PENDING;
        case Phase::None:
        case Phase::Stopped:
            break;
        }
        return SERVICE_STOPPED;
    }

    std::mutex m_mutex;
    SERVICE_STATUS_HANDLE m_handle = nullptr;
    Phase m_phase = Phase::None;
    DWORD m_checkPoint = 0;
};

ServiceState g_state;
// Set before the thread that uses them is there.
std::string g_name;
const ServiceBody* g_body = nullptr;
int g_result = -1;

DWORD WINAPI onControl(DWORD control, DWORD, void*, void*) {
    switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        requestStop();
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

// Nothing can be done about an event that cannot be written.
void writeEvent(const std::string& text) {
    constexpr DWORD eventNumber = 1;
    const HANDLE source = RegisterEventSourceA(nullptr, g_name.c_str());
    if (source == nullptr) {
        return;
    }
    std::array<const char*, 1> strings = {text.c_str()};
    ReportEventA(source, EVENTLOG_ERROR_TYPE, 0, eventNumber, nullptr, 1, 0, strings.data(),
                 nullptr);
    DeregisterEventSource(source);
}

void WINAPI serviceMain(DWORD, char**) {
    const SERVICE_STATUS_HANDLE handle =
        RegisterServiceCtrlHandlerExA(g_name.c_str(), onControl, nullptr);
    if (handle == nullptr) {
        writeEvent("the service manager takes no handler, error code " +
                   std::to_string(GetLastError()));
        return;
    }
    g_state.setHandle(handle);
    (void)g_state.enter(Phase::Starting); // if it cannot be told, nor can what comes next
    std::string failure;
    g_result = (*g_body)(failure);
    if (g_result != 0) {
        writeEvent(failure);
    }
    (void)g_state.enter(Phase::Stopped, g_result);
}

// ---- registration

class ServiceHandle {
public:
    explicit ServiceHandle(SC_HANDLE handle) : m_handle(handle) {}
    ~ServiceHandle() {
        if (m_handle != nullptr) {
            CloseServiceHandle(m_handle);
        }
    }
    ServiceHandle(const ServiceHandle&) = delete;
    ServiceHandle& operator=(const ServiceHandle&) = delete;
    [[nodiscard]] SC_HANDLE get() const { return m_handle; }

private:
    SC_HANDLE m_handle;
};

// -1, with the reason in `failure`.
int refuse(const std::string& name, DWORD code, std::string& failure) {
    const std::string service = "service " + name;
    switch (code) {
    case ERROR_ACCESS_DENIED:
        failure = "the right to change services is missing; run this as an administrator";
        break;
    case ERROR_SERVICE_EXISTS:
    case ERROR_DUPLICATE_SERVICE_NAME:
        failure = service + " is installed already";
        break;
    case ERROR_SERVICE_DOES_NOT_EXIST:
        failure = "there is no " + service;
        break;
    case ERROR_SERVICE_MARKED_FOR_DELETE:
        failure = service + " is still being removed; close the programs that look at it";
        break;
    case ERROR_INVALID_NAME:
        failure = "\"" + name + "\" is no name for a service";
        break;
    default:
        failure = service + ": the service manager fails, error code " + std::to_string(code);
    }
    return fail(code);
}

// An argument as the C runtime reads it back: backslashes before the closing quote are doubled.
std::string quoted(const std::string& argument) {
    const size_t backslashes = argument.size() - (argument.find_last_not_of('\\') + 1);
    return "\"" + argument + std::string(backslashes, '\\') + "\"";
}

// Empty when a part of it cannot stand in a command line. A percent sign would be read as the name
// of a variable.
std::string commandLine(const std::vector<std::string>& arguments) {
    std::string program = platform().executablePath();
    std::replace(program.begin(), program.end(), '/', '\\');
    std::string line = quoted(program);
    for (const std::string& argument : arguments) {
        if (argument.find_first_of("\"%") != std::string::npos) {
            return {};
        }
        line += " " + quoted(argument);
    }
    return program.find('%') == std::string::npos ? line : std::string();
}

// Started again after every failure, also after one in which it ends by itself.
bool setRecovery(SC_HANDLE service) {
    SC_ACTION restart{SC_ACTION_RESTART, g_restartDelay}; // the last one stands for all that follow
    SERVICE_FAILURE_ACTIONSA actions{g_failureMemory, nullptr, nullptr, 1, &restart};
    if (!ChangeServiceConfig2A(service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions)) {
        return false;
    }
    SERVICE_FAILURE_ACTIONS_FLAG also{TRUE};
    if (ChangeServiceConfig2A(service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &also)) {
        return true;
    }
    // Where it is not known the service is started again after it was killed alone.
    return GetLastError() == ERROR_INVALID_LEVEL || GetLastError() == ERROR_INVALID_PARAMETER;
}

bool describe(SC_HANDLE service, const ServiceEntry& entry) {
    std::string text = entry.description;
    SERVICE_DESCRIPTIONA description{text.data()};
    return ChangeServiceConfig2A(service, SERVICE_CONFIG_DESCRIPTION, &description) != 0;
}

std::string eventSource(const std::string& name) {
    return R"(SYSTEM\CurrentControlSet\Services\EventLog\Application\)" + name;
}

// So that the viewer shows the text alone. This program of the system has a message for it.
void registerEvents(const std::string& name) {
    constexpr std::string_view messages = R"(%SystemRoot%\System32\EventCreate.exe)";
    constexpr DWORD types = EVENTLOG_ERROR_TYPE;
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, eventSource(name).c_str(), 0, nullptr, 0, KEY_SET_VALUE,
                        nullptr, &key, nullptr) != ERROR_SUCCESS) {
        return; // the viewer then shows the text with an excuse before it
    }
    const auto set = [key](const char* value, DWORD type, const void* data, size_t size) {
        RegSetValueExA(key, value, 0, type, static_cast<const BYTE*>(data),
                       static_cast<DWORD>(size));
    };
    set("EventMessageFile", REG_EXPAND_SZ, messages.data(), messages.size() + 1);
    set("TypesSupported", REG_DWORD, &types, sizeof types);
    RegCloseKey(key);
}

// Whether the program of the service is started with the argument; not so when that cannot be read.
bool isStartedWith(SC_HANDLE service, const std::string& mark) {
    DWORD size = 0;
    // No configuration is larger.
    alignas(QUERY_SERVICE_CONFIGA) std::array<uint8_t, 8192> bytes{};
    void* const place = bytes.data();
    auto* const config = static_cast<QUERY_SERVICE_CONFIGA*>(place);
    return QueryServiceConfigA(service, config, static_cast<DWORD>(bytes.size()), &size) &&
           std::string_view(config->lpBinaryPathName).find(quoted(mark)) != std::string_view::npos;
}

} // namespace

bool isManaged() {
    return g_body != nullptr;
}

uint32_t patienceOfSupervisor() {
    return isManaged() ? g_waitHint : 0;
}

int notifySupervisor(Notice notice, const std::string&) {
    switch (notice) {
    case Notice::Ready:
        return g_state.enter(Phase::Running);
    case Notice::Stopping:
        return g_state.enter(Phase::Stopping);
    case Notice::Alive:
        return g_state.sign();
    case Notice::Status: // it has no place for one
        break;
    }
    return 0;
}

int runAsService(const std::string& name, const ServiceBody& body, std::string& failure) {
    g_name = name;
    g_body = &body;
    std::string program = platform().executablePath();
    // It begins in a directory of the system's.
    SetCurrentDirectoryA(program.substr(0, program.rfind('/') + 1).c_str());
    const std::array<SERVICE_TABLE_ENTRYA, 2> services = {
        SERVICE_TABLE_ENTRYA{g_name.data(), serviceMain}, SERVICE_TABLE_ENTRYA{nullptr, nullptr}};
    if (StartServiceCtrlDispatcherA(services.data())) {
        return g_result;
    }
    g_body = nullptr;
    const DWORD code = GetLastError();
    failure = code == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT
                  ? "--service is for the service manager, which has not started this program"
                  : "the service manager cannot be reached, error code " + std::to_string(code);
    return fail(code);
}

int installService(const ServiceEntry& entry, std::string& failure) {
    const std::string line = commandLine(entry.arguments);
    if (line.empty()) {
        failure = "neither the program's path, the root nor the name may hold '\"' or '%'";
        return fail(ERROR_INVALID_NAME);
    }
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (manager.get() == nullptr) {
        return refuse(entry.name, GetLastError(), failure);
    }
    const ServiceHandle service(
        CreateServiceA(manager.get(), entry.name.c_str(), entry.title.c_str(), SERVICE_ALL_ACCESS,
                       SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                       line.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (service.get() == nullptr) {
        return refuse(entry.name, GetLastError(), failure);
    }
    if (!describe(service.get(), entry) || !setRecovery(service.get())) {
        const DWORD code = GetLastError();
        DeleteService(service.get()); // all of it or nothing
        return refuse(entry.name, code, failure);
    }
    registerEvents(entry.name);
    return 0;
}

int uninstallService(const std::string& name, const std::string& mark, std::string& failure) {
    const ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (manager.get() == nullptr) {
        return refuse(name, GetLastError(), failure);
    }
    const ServiceHandle service(OpenServiceA(manager.get(), name.c_str(),
                                             DELETE | SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG));
    if (service.get() == nullptr) {
        return refuse(name, GetLastError(), failure);
    }
    if (!isStartedWith(service.get(), mark)) {
        failure = "service " + name + " is another program's";
        return fail(ERROR_ACCESS_DENIED);
    }
    SERVICE_STATUS status{};
    if (!QueryServiceStatus(service.get(), &status)) {
        return refuse(name, GetLastError(), failure);
    }
    // The manager would take it out when it ends, whenever that is.
    if (status.dwCurrentState != SERVICE_STOPPED) {
        failure = "service " + name + " is running; stop it first";
        return fail(ERROR_SERVICE_ALREADY_RUNNING);
    }
    if (!DeleteService(service.get())) {
        return refuse(name, GetLastError(), failure);
    }
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, eventSource(name).c_str());
    return 0;
}

} // namespace kestrine
