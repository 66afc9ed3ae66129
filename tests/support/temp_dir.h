// A directory of a test's own, removed with all it holds at the end of its scope.
#pragma once

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>

namespace kestrine::test {

class TempDir {
public:
    explicit TempDir(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
        static std::atomic<uint32_t> counter{0};
        do {
            m_path = (base / ("kestrine-test-" + std::to_string(std::random_device()()) + "-" +
                              std::to_string(counter++)))
                         .generic_string();
        } while (!std::filesystem::create_directory(m_path));
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] std::string operator/(const std::string& name) const {
        return m_path + "/" + name;
    }

    // Names below are relative to the directory. Writes a file and the directories above it, and
    // returns its full path.
    std::string write(const std::string& name, const std::string& content = {}) const {
        const std::filesystem::path file = *this / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return *this / name;
    }
    std::string makeDirs(const std::string& name) const {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream file(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] bool has(const std::string& name) const {
        return std::filesystem::exists(*this / name);
    }
    // Every file with its content, by relative name; directories end in '/'.
    [[nodiscard]] std::map<std::string, std::string> tree() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_path)) {
            const std::string name = entry.path().generic_string().substr(m_path.size() + 1);
            if (entry.is_directory()) {
                all[name + "/"];
            } else {
                all[name] = read(name);
            }
        }
        return all;
    }

private:
    std::string m_path;
};

} // namespace kestrine::test
