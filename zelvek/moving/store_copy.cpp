#include "zelvek/moving/store_copy.h"

#include <filesystem>
#include <memory>

#include "zelvek/base/error.h"
#include "zelvek/moving/bytes.h"
#include "zelvek/store/copy_mark.h"
#include "zelvek/store/engines.h"
#include "zelvek/store/rows.h"
#include "zelvek/store/statement.h"
#include "zelvek/store/store.h"

namespace zelvek::moving {

namespace {

using rows::Row;
using rows::Table;

constexpr int kRowsAtOnce = 500;  // rows in memory at once

/// Opened for this alone, after it was brought to the newest version.
std::unique_ptr<Connection> OpenNewest(const Place& place) try {
    { const Store newest(place); }
    return Open(place, Sharing::kAlone);
} catch (const Error& error) {
    const std::string sentence = error.what();
    const std::string name = "database " + place.Shown() + ": ";
    throw Error(error.code(), sentence.starts_with(name) ? sentence : name + sentence);
}

/// Rolled back unless it is committed.
class Work {
public:
    explicit Work(Connection& connection) : connection_(connection) { connection_.Begin(); }
    ~Work() {
        if (open_) End();
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    void Commit() {
        connection_.Commit();
        open_ = false;
    }

private:
    void End() noexcept {
        try {
            connection_.Rollback();
        } catch (const Error&) {
            open_ = false;  // the engine has done so by itself
        }
    }

    Connection& connection_;
    bool open_ = true;
};

bool IsMark(const Table& table, const Row& row) {
    return table.name == "setting" && row.front() == copy_mark::kName;
}

/// Makes the texts of a row such as a store takes; says how many it has changed.
long long Mend(Row& row) {
    long long mended = 0;
    for (auto& value : row) {
        if (!value) continue;
        std::string fit = StoredText(*value);
        if (fit == *value) continue;
        value = std::move(fit);
        ++mended;
    }
    return mended;
}

/// Whether the rows that a new store counts by itself are its only ones.
bool IsUnused(Connection& store) {
    for (const Table& table : rows::Tables()) {
        if (!table.counts && rows::Count(store, table) > 0) return false;
    }
    return true;
}

Row KeyOf(const Table& table, const Row& row) {
    return {row.begin(), row.begin() + static_cast<std::ptrdiff_t>(table.keys.size())};
}

/// All rows of a table, page by page, as they are kept from now on.
template <class Take>
long long ForEachPage(Connection& store, const Table& table, Row after, const Take& take) {
    const std::vector<std::string> columns = rows::ColumnsOf(store, table);
    long long mended = 0;
    for (;;) {
        std::vector<Row> page = rows::Page(store, table, columns, after, kRowsAtOnce);
        if (page.empty()) return mended;
        after = KeyOf(table, page.back());
        std::erase_if(page, [&](const Row& row) { return IsMark(table, row); });
        for (Row& row : page) mended += Mend(row);
        take(columns, page);
    }
}

class Copy {
public:
    Copy(const Place& from, const Place& to, const CopyProgress& progress)
        : progress_(progress), source_(OpenNewest(from)), target_(OpenNewest(to)) {
        Mark(from, to);
        source_->BeginReading();
    }

    CopyReport Carry() {
        for (const Table& table : rows::Tables()) table.counts ? CopyCounts(table) : CopyTable(table);
        CopyNumbers();
        for (const Table& table : rows::Tables()) report_.tables.push_back(Compared(table));
        Work work(*target_);
        copy_mark::Remove(*target_);
        work.Commit();
        return report_;
    }

private:
    void Mark(const Place& from, const Place& to) {
        if (!copy_mark::Of(*source_).empty())
            throw Error(Code::kIo, "database " + from.Shown() + ": a copy into it was not finished");
        const std::string mark = copy_mark::Of(*target_);
        if (mark == from.Shown()) return;
        if (!mark.empty())
            throw Error(Code::kExists, "database " + to.Shown() + ": it is being copied from " + mark);
        if (!IsUnused(*target_))
            throw Error(Code::kExists, "database " + to.Shown() + ": there is something in it");
        Work work(*target_);
        copy_mark::Set(*target_, from.Shown());
        work.Commit();
    }

    /// The settings' order has the mark in its midst, so these, which are few, are begun anew.
    Row Begin(const Table& table) {
        if (table.name != "setting") return rows::LastKey(*target_, table);
        Work work(*target_);
        Statement(*target_, "DELETE FROM setting WHERE name <> :mark").With(copy_mark::kName).Run();
        work.Commit();
        return {};
    }

    void CopyTable(const Table& table) {
        const Row begin = Begin(table);
        long long copied = rows::Count(*target_, table);
        report_.mended += ForEachPage(*source_, table, begin, [&](const auto& columns, const auto& page) {
            Work work(*target_);
            rows::Put(*target_, table, columns, page);
            work.Commit();
            copied += static_cast<long long>(page.size());
            progress_(table.name, copied);
        });
    }

    /// What has been counted on the way is not what the source has: an authority without jobs is counted,
    /// too.
    void CopyCounts(const Table& table) {
        Work work(*target_);
        Statement(*target_, "DELETE FROM " + table.name).Run();
        ForEachPage(*source_, table, {}, [&](const auto& columns, const auto& page) {
            rows::Put(*target_, table, columns, page);
        });
        work.Commit();
    }

    /// No number that was given is given again.
    void CopyNumbers() {
        Work work(*target_);
        for (const Table& table : rows::Tables()) {
            if (table.number.empty()) continue;
            const long long last = source_->LastNumber(table.name, table.number);
            target_->SetLastNumber(table.name, table.number, last);
        }
        work.Commit();
    }

    static CopiedTable Read(Connection& store, const Table& table) {
        CopiedTable read{table.name, 0, ""};
        Digest digest;
        for (const std::string& column : rows::ColumnsOf(store, table)) digest.Take(column + ",");
        ForEachPage(store, table, {}, [&](const auto& /*columns*/, const auto& page) {
            for (const Row& row : page) {
                for (const auto& value : row)
                    digest.Take(value ? std::to_string(value->size()) + ":" + *value : "-");
            }
            read.rows += static_cast<long long>(page.size());
        });
        read.digest = digest.Text();
        return read;
    }

    CopiedTable Compared(const Table& table) {
        const CopiedTable there = Read(*source_, table);
        CopiedTable here = Read(*target_, table);
        if (here.rows == there.rows && here.digest == there.digest) return here;
        throw Error(Code::kIo,
                    "the copy of the table " + table.name + " differs: " + std::to_string(there.rows) +
                        " rows there, " + std::to_string(here.rows) +
                        " here. Was the source changed since the copy was begun? Empty the target, "
                        "and begin anew");
    }

    const CopyProgress& progress_;
    std::unique_ptr<Connection> source_;
    std::unique_ptr<Connection> target_;
    CopyReport report_;
};

}  // namespace

CopyReport CopyStore(const Place& from, const Place& to, const CopyProgress& progress) {
    if (from.Shown() == to.Shown()) throw Error(Code::kValue, "both are the same database");
    if (from.IsFile() && !std::filesystem::exists(from.File()))
        throw Error(Code::kMissed, "database " + from.Shown() + ": it is not there");
    return Copy(from, to, progress).Carry();
}

}  // namespace zelvek::moving
