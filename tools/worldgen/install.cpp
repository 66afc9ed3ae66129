#include "worldgen/install.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "worldgen/bytes.h"
#include "worldgen/random.h"

namespace worldgen {

namespace {

constexpr std::uint32_t currentMagic = 0x87512546u;
constexpr std::uint32_t olderMagic = 0x89156984u;
constexpr std::uint32_t currentVersion = 0x10010;
constexpr std::uint32_t olderVersion = 0x3030;
constexpr std::size_t headerBytes = 16;
constexpr std::size_t currentRecordBytes = 5662;
constexpr std::size_t olderRecordBytes = 5278;
constexpr std::size_t nameOffset = 40;
constexpr std::size_t nameBytes = 36;

std::string accountRecord(const std::string& name, std::size_t size) {
    if (name.empty() || name.size() >= nameBytes) {
        throw std::invalid_argument("account name of 1 to 35 bytes: " + name);
    }
    Random random(hashText(name));
    std::string record;
    while (record.size() < size) {
        record += static_cast<char>(1 + random.below(255));
    }
    return record.replace(nameOffset, nameBytes, name + std::string(nameBytes - name.size(), '\0'));
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

} // namespace

std::filesystem::path programDir(const std::filesystem::path& root) {
    return root / "install" / "ml";
}

std::filesystem::path urlstatIniPath(const std::filesystem::path& root) {
    return programDir(root) / "config" / "urlstat.ini";
}

std::filesystem::path accountFilePath(const std::filesystem::path& root) {
    return programDir(root) / "config" / "syncaccount.dat";
}

std::string accountFileBytes(const std::vector<std::string>& storedNames, bool olderLayout) {
    std::string bytes;
    appendLe32(bytes, olderLayout ? olderMagic : currentMagic);
    appendLe32(bytes, static_cast<std::uint32_t>(storedNames.size()));
    appendLe32(bytes, olderLayout ? olderVersion : currentVersion);
    appendLe32(bytes, 0);
    for (const std::string& name : storedNames) {
        bytes += accountRecord(name, olderLayout ? olderRecordBytes : currentRecordBytes);
    }
    return bytes;
}

std::vector<std::string> readAccounts(const std::filesystem::path& root) {
    std::string bytes = readFile(accountFilePath(root));
    std::string magic;
    appendLe32(magic, olderMagic);
    std::size_t recordBytes =
        bytes.compare(0, 4, magic) == 0 ? olderRecordBytes : currentRecordBytes;
    std::vector<std::string> names;
    for (std::size_t at = headerBytes; at + recordBytes <= bytes.size(); at += recordBytes) {
        std::string name = bytes.substr(at + nameOffset, nameBytes);
        name.resize(std::min(name.find('\0'), name.size()));
        std::replace(name.begin(), name.end(), '\\', '/');
        names.push_back(name.substr(name.find_first_not_of('/')));
    }
    return names;
}

void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

void writeInstall(const std::filesystem::path& root, const std::vector<std::string>& accounts,
                  const InstallSettings& settings) {
    std::string urlstat = "[urlstat]\n";
    for (const auto& [key, value] : settings.urlstat) {
        urlstat.append(key).append("=").append(value).append("\n");
    }
    std::filesystem::path data = std::filesystem::absolute(root / "data");
    std::string dataPath = settings.dataPath.value_or(data.make_preferred().string());
    std::vector<std::string> storedNames;
    for (const std::string& account : accounts) {
        std::string name = "\\" + account;
        std::replace(name.begin(), name.end(), '/', '\\');
        storedNames.push_back(name);
    }
    writeFile(urlstatIniPath(root), urlstat);
    writeFile(root / "install" / "mysql_path.ini", "[mysql]\nlogdatapath=" + dataPath + "\n");
    writeFile(accountFilePath(root), accountFileBytes(storedNames, settings.olderAccountLayout));
}

} // namespace worldgen
