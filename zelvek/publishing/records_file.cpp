#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "zelvek/base/durable.h"
#include "zelvek/base/error.h"
#include "zelvek/publishing/dns_backends.h"
#include "zelvek/publishing/dns_record.h"

namespace zelvek::dns {
namespace {

/// Zone and name hold no blank, so that the rest of a line is the value as it is.
std::string Line(const Record& record) { return record.zone + " " + record.name + " " + record.value; }

class FileBackend : public Backend {
public:
    explicit FileBackend(std::filesystem::path file) : file_(std::move(file)) {}

    bool Serves(const std::string& zone) const override { return !zone.empty(); }

    void AddTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        const Record record = CheckedNewRecord(zone, name, value);
        const std::lock_guard lock(mutex_);
        std::vector<std::string> lines = Read();
        if (std::find(lines.begin(), lines.end(), Line(record)) != lines.end()) {
            throw Error(Code::kExists, "the TXT record of " + record.name + " is there already");
        }
        lines.push_back(Line(record));
        Write(lines);
    }

    void RemoveTxt(const std::string& zone, const std::string& name, const std::string& value) override {
        const Record record = CheckedRecord(zone, name, value);
        const std::lock_guard lock(mutex_);
        std::vector<std::string> lines = Read();
        if (std::erase(lines, Line(record)) != 0) Write(lines);
    }

private:
    std::vector<std::string> Read() const {
        if (!std::filesystem::exists(file_)) return {};
        std::ifstream in(file_);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        // A file that cannot be read is no empty file: writing it anew would lose its records.
        if (!in.eof()) throw Error(Code::kDns, "cannot read " + file_.string());
        return lines;
    }

    void Write(const std::vector<std::string>& lines) const {
        std::string content;
        for (const std::string& line : lines) content += line + "\n";
        try {
            durable::Replace(file_, content, 0644);
        } catch (const Error& error) {
            throw Error(Code::kDns, error.what());
        }
    }

    std::filesystem::path file_;
    std::mutex mutex_;
};

constexpr const char* kFile = "dns-records-file";

std::unique_ptr<Backend> MakeFile(const Settings& settings) {
    const auto file = std::filesystem::absolute(std::get<std::string>(settings.at(kFile)));
    if (!std::filesystem::is_directory(file.parent_path())) {
        throw Error(Code::kValue, "the folder of " + file.string() + " is missing");
    }
    return std::make_unique<FileBackend>(file);
}

}  // namespace

BackendKind RecordsFile() {
    return {"a file of records", {{kFile, "File of records instead of a server", std::string()}}, &MakeFile};
}

}  // namespace zelvek::dns
