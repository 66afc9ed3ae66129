// INI files: the reader itself, and the three files of settings that are read with it.
//
//   input   bits 0, 1  form: 0 any text, looked up by its own lines
//   byte 0                   1 the service's settings
//                            2 the data-path file
//                            3 the logging product's settings
//   rest    the text
#include "frame/ini_file.h"
#include "frame/configuration.h"
#include "frame/data_path.h"
#include "harness/fuzz_platform.h"

namespace kestrine::fuzz {

namespace {

bool inside(int64_t value, int64_t smallest, int64_t largest) {
    return value >= smallest && value <= largest;
}

// Every line as if it named a section, and as if it held a key of the section before it.
void lookUpLines(const IniFile& ini, std::string_view text) {
    std::string_view section;
    for (int lookups = 0; lookups < 200 && !text.empty(); ++lookups) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::string_view key = line.substr(0, line.find('='));
        for (const std::string_view one : {key, key.substr(0, key.find_last_not_of(' ') + 1)}) {
            const auto value = ini.find(section, one);
            require(!value || std::string(*value).find('\n') == std::string::npos,
                    "a value is part of a line");
            require(value || ini.integer(section, one) == 0, "what is missing is 0");
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
    require(inside(settings->maxHashMemory(), 1024, 1048576 * int64_t{1024}) &&
                inside(settings->memoryDiskSize(), 1024, 2097152 * int64_t{1024}) &&
                inside(settings->sleepTime(), 1, 36000) &&
                inside(settings->daycrcsortInterval(), 1, 36000) &&
                inside(settings->weekmoncrcsortInterval(), 1, 172800) &&
                inside(settings->exportPersent(), 1, 100) && settings->urlBlockSize() == 2097152,
            "settings lie inside their bounds");
    const std::string paths = settings->urlStatRoot() + settings->memoryDiskPath();
    require(paths.find('\\') == std::string::npos, "separators are all alike");
}

void readDataPath() {
    disk().executable = "/opt/product/ml/kestrine";
    std::string path;
    const int result = getDataPath(path);
    disk().executable.clear();
    require(result != 0 || (path.size() > 9 && path.ends_with("/log_data")), "below the data path");
}

void readLoggerSettings() {
    const LoggerSettings settings;
    require(inside(settings.maxBlockLife, 20, 180) && inside(settings.maxFileLife, 60, 300),
            "settings lie inside their bounds");
}

} // namespace

void runInput(ByteView bytes) {
    InputReader input(bytes);
    const uint8_t form = input.byte() & 3;
    const ByteView text = input.takeAll();
    static constexpr const char* names[] = {"any.ini", "config/urlstat.ini",
                                            "/opt/product/mysql_path.ini",
                                            "/etc/veltan/logconfig.ini"};
    disk().put(names[form], text);
    if (form == 0) {
        readAny(names[form], text);
    } else {
        (form == 1 ? readSettings : form == 2 ? readDataPath : readLoggerSettings)();
    }
}

std::vector<std::string> makeSeeds() {
    const std::string texts[] = {
        "k=0\n[a]b]\nk = v \nk=2\n=1\n[a]b]\nl=3\n[]\n[open\n k\t=\n[end]",
        "[urlstat]\r\nmaxHashMemory = 1\r\nsleepTime=-5\nmemoryDiskSize = 99999999999\n"
        "exportPersent=101\n;x=1\n#y=2\n\ndaycrcsortInterval=7\nweekmoncrcsortInterval=x\n"
        "urlStatRoot=D:\\stat\\\nmemoryDiskPath = /mem/\n",
        "[mysql]\r\nlogdatapath=D:\\data\r\n", "[loger]\nmaxBlockLife=30\nmaxFileLife=299\n"};
    std::vector<std::string> seeds;
    for (size_t form = 0; form < std::size(texts); ++form) {
        seeds.push_back(static_cast<char>(form) + texts[form]);
    }
    return seeds;
}

} // namespace kestrine::fuzz
