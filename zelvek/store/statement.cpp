#include "zelvek/store/statement.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <functional>
#include <utility>
#include <vector>

#include "zelvek/store/connection.h"
#include "zelvek/store/soci_state.h"

namespace zelvek {

struct Statement::State {
    State(Connection::State& owner, const std::string& sql)
        : connection(owner), text(sql), statement(Take()) {}

    /// The kept statement of this text, or a new one.
    soci::statement Take() {
        const auto kept = connection.kept.find(text);
        if (kept == connection.kept.end()) {
            soci::statement fresh(connection.session);
            fresh.alloc();
            fresh.prepare(text, soci::details::st_repeatable_query);
            return fresh;
        }
        soci::statement taken = kept->second;
        connection.kept.erase(kept);
        return taken;
    }

    /// To the end, so that the engine does not take it for a reader that is still under way.
    void PutBack() {
        while (more) more = statement.fetch();
        statement.bind_clean_up();
        connection.kept.insert_or_assign(text, statement);
    }

    bool Step() {
        if (!begun) {
            statement.define_and_bind();
            statement.execute(false);
            begun = true;
        }
        more = statement.fetch();
        if (more) std::for_each(columns.begin(), columns.end(), [](const auto& hand_over) { hand_over(); });
        return more;
    }

    /// The library writes into a place of this object, also when `PutBack` reads on; the caller's variable
    /// gets the rows that the caller asks for.
    template <class Value, class Variable>
    void HandOver(std::deque<Value>& places, Variable& variable) {
        Value& place = places.emplace_back();
        statement.exchange(soci::into(place));
        columns.push_back([&place, &variable] { variable = static_cast<Variable>(std::move(place)); });
    }

    Connection::State& connection;
    std::string text;
    soci::statement statement;
    bool begun = false;
    bool more = false;
    bool failed = false;
    // They stay where they are while the library refers to them.
    std::deque<std::string> texts;
    std::deque<long long> numbers;
    std::vector<std::function<void()>> columns;
};

Statement::Statement(Connection& connection, const std::string& sql)
    : state_(Translated([&] { return std::make_unique<State>(*connection.state_, sql); })) {}

// What has failed is not kept: the engine may have left it half-way.
Statement::~Statement() {
    if (state_->failed) return;
    try {
        state_->PutBack();
    } catch (const std::exception&) {
        state_->failed = true;
    }
}

Statement& Statement::With(const std::string& value) {
    state_->statement.exchange(soci::use(state_->texts.emplace_back(value)));
    return *this;
}

Statement& Statement::With(long long value) {
    state_->statement.exchange(soci::use(state_->numbers.emplace_back(value)));
    return *this;
}

Statement& Statement::Into(std::string& column) {
    state_->HandOver(state_->texts, column);
    return *this;
}

Statement& Statement::Into(long long& column) {
    state_->HandOver(state_->numbers, column);
    return *this;
}

Statement& Statement::Into(int& column) {
    state_->HandOver(state_->numbers, column);
    return *this;
}

Statement& Statement::Into(bool& column) {
    state_->HandOver(state_->numbers, column);
    return *this;
}

bool Statement::Next() {
    state_->failed = true;
    const bool row = Translated([&] { return state_->Step(); });
    state_->failed = false;
    // One that changes rows and has columns gives the changed ones.
    if (row && !state_->text.starts_with("SELECT")) state_->connection.changed = true;
    return row;
}

std::vector<int> Statement::Numbers() {
    std::vector<int> numbers;
    int number = 0;
    Into(number);
    while (Next()) numbers.push_back(number);
    return numbers;
}

long long Statement::Run() {
    state_->failed = true;
    const long long changed = Translated([&] {
        state_->statement.define_and_bind();
        state_->statement.execute(true);
        return state_->statement.get_affected_rows();
    });
    state_->failed = false;
    if (changed > 0) state_->connection.changed = true;
    return changed;
}

}  // namespace zelvek
