// INI files: the reader itself, and the three files of settings that are read with it.
//
//   input   bits 0, 1  form: 0 any text, looked up by its own lines
//   byte 0                   1 the service's settings
//                            2 the data-path file
//                            3 the logging product's settings
//   rest    the text
#include "harness/fuzz_platform.h"
#include "harness/target.h"

#include "frame/configuration.h"
#include "frame/ini_file.h"

namespace kestrine::fuzz {

namespace {

constexpr const char* g_settings = "config/urlstat.ini";
constexpr const char* g_dataPathFile = "/opt/product/mysql_path.ini";
constexpr const char* g_program = "/opt/product/ml/kestrine";
constexpr const char* g_loggerFile = "/etc/veltan/logconfig.ini";

constexpr size_t g_lookups = 200;

bool inside(int64_t value, int64_t smallest, int64_t largest) {
    return value >= smallest && value <= largest;
}

// Every line as if it named a section, and as if it held a key of the section before it.
void lookUpLines(const IniFile& ini, std::string_view text) {
    std::string_view section;
    for (size_t i = 0; i < g_lookups && !text.empty(); ++i) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::string_view key = line.substr(0, line.find('='));
        for (const std::string_view one : {key, key.substr(0, key.find_last_not_of(' ') + 1)}) {
            const auto value = ini.find(section, one);
            if (value) {
                const std::string touched(*value);
                require(touched.find('\n') == std::string::npos, "a value is part of a line");
            }
            require(value.has_value() || ini.integer(section, one) == 0, "what is missing is 0");
        }
        if (line.starts_with('[')) {
            section = line.substr(1, std::min(line.find(']'), line.size()) - 1);
        }
    }
}

void readAny(const std::string& name, ByteView bytes) {
    IniFile ini;
    const int result = ini.load(name);
    require(result == 0 || result == -2, "readable, unless a name is too long");
    lookUpLines(ini, asText(bytes));
    require(ini.load(name) == result, "unchanged");
    disk().modified = 2;
    disk().put(name, {});
    require(ini.load(name) == 0 && !ini.find("urlstat", "sleepTime"), "changed to nothing");
}

void readSettings() {
    Configuration::resetInstance();
    Configuration* settings = nullptr;
    if (Configuration::getInstance(&settings) != 0) {
        return;
    }
    require(inside(settings->maxHashMemory(), 1024, 1048576 * int64_t{1024}), "maxHashMemory");
    require(inside(settings->memoryDiskSize(), 1024, 2097152 * int64_t{1024}), "memoryDiskSize");
    require(inside(settings->sleepTime(), 1, 36000), "sleepTime");
    require(inside(settings->daycrcsortInterval(), 1, 36000), "daycrcsortInterval");
    require(inside(settings->weekmoncrcsortInterval(), 1, 172800), "weekmoncrcsortInterval");
    require(inside(settings->exportPersent(), 1, 100), "exportPersent");
    require(settings->urlBlockSize() == 2097152, "urlBlockSize");
    for (const std::string& path : {settings->urlStatRoot(), settings->memoryDiskPath()}) {
        require(path.find('\\') == std::string::npos, "separators are all alike");
    }
}

void readDataPath() {
    disk().executable = g_program;
    std::string path;
    const int result = getDataPath(path);
    disk().executable.clear();
    require(result != 0 || (path.size() > 9 && path.ends_with("/log_data")), "below the data path");
}

void readLoggerSettings() {
    const LoggerSettings settings;
    require(settings.defaultBlockSize == 2097152, "defaultBlockSize");
    require(inside(settings.maxBlockLife, 20, 180), "maxBlockLife");
    require(inside(settings.maxFileLife, 60, 300), "maxFileLife");
}

} // namespace

void runInput(ByteView bytes) {
    InputReader input(bytes);
    const uint8_t form = input.byte() & 3;
    const ByteView text = input.takeAll();
    static constexpr const char* names[] = {"any.ini", g_settings, g_dataPathFile, g_loggerFile};
    disk().put(names[form], text);
    switch (form) {
    case 0:
        return readAny(names[form], text);
    case 1:
        return readSettings();
    case 2:
        return readDataPath();
    default:
        return readLoggerSettings();
    }
}

std::vector<std::string> makeSeeds() {
    const std::string settings = "[urlstat]\r\nmaxHashMemory = 1\r\nsleepTime=-5\nmemoryDiskSize = "
                                 "99999999999\nexportPersent=101\n;x=1\n#y=2\n\ndaycrcsortInterval"
                                 "=7\nweekmoncrcsortInterval=x\nurlStatRoot=D:\\stat\\\n"
                                 "memoryDiskPath = /mem/\n";
    const std::string dataPath = "[mysql]\r\nlogdatapath=D:\\data\r\n";
    const std::string logger = "[loger]\nmaxBlockLife=30\nmaxFileLife=299\n";
    const std::string odd = "k=0\n[a]b]\nk = v \nk=2\n=1\n[a]b]\nl=3\n[]\n[open\n k\t=\n[end]";
    std::vector<std::string> seeds;
    for (const std::string& text : {settings, dataPath, logger, odd}) {
        seeds.push_back(std::string(1, '\0') + text);
    }
    seeds.push_back("\1" + settings);
    seeds.push_back("\2" + dataPath);
    seeds.push_back("\3" + logger);
    return seeds;
}

} // namespace kestrine::fuzz
