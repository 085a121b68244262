#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zelvek {

/// The parameters of one query, as application/x-www-form-urlencoded text brings them. Of a key that stands
/// twice the first value counts: what a caller appends to a query never replaces what the query's own text
/// says.
class Parameters {
public:
    explicit Parameters(const std::string& form);

    /// The value, or an empty text where there is none.
    const std::string& Get(const std::string& key) const;
    bool Has(const std::string& key) const;

    /// All parameters in the order written, first occurrences only.
    const std::vector<std::pair<std::string, std::string>>& All() const { return all_; }

private:
    std::vector<std::pair<std::string, std::string>> all_;
    // From a key to its place in all_. No hash table: a hostile choice of keys could make that slow.
    std::map<std::string, std::size_t> index_;
};

/// Percent-decoding of one key or value; "+" is a blank. A "%" that no two hexadecimal digits follow stays
/// itself.
std::string FormDecode(const std::string& text);

}  // namespace zelvek
