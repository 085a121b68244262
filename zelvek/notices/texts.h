#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// The words in which people are told. They stand in a file of entries, whose form its head describes
/// (packaging/notices.en.txt); the program has that file inside, too.
namespace zelvek::notices {

/// The values of a text's placeholders.
using Parameters = std::vector<std::pair<std::string, std::string>>;

/// A subject of one line, and paragraphs with an empty line between them.
struct Text {
    std::string subject, body;

    bool operator==(const Text&) const = default;
};

class Texts {
public:
    /// The built-in ones.
    Texts();

    /// Those of the file, and the built-in ones for what it leaves out. Entries that nothing is told by are
    /// logged and left alone. Errors: Error of code kIo for a file that cannot be read; of code kValue, with
    /// file and line, for anything that is no entry, an entry that stands twice, and a placeholder that the
    /// built-in entry does not have.
    explicit Texts(const std::filesystem::path& file);

    /// The text of this name with its values; of a name without an entry the name and the values. A value
    /// cannot become a placeholder, nor bring a control character; a long one is cut, a private key left out,
    /// and "(none)" stands for one that is empty or missing. Line ends of values stay in the body alone.
    Text Of(const std::string& name, const Parameters& parameters) const;

    const std::map<std::string, Text>& All() const { return texts_; }

private:
    std::map<std::string, Text> texts_;
};

/// The names of a text's placeholders.
std::set<std::string> PlaceholdersOf(const Text& text);

/// A value as `Texts::Of` puts it in.
std::string ShownValue(const std::string& value);

}  // namespace zelvek::notices
