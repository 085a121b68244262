// Records by dynamic updates: whatever name, value and the DNS server's answers hold, one checked change goes
// out or none.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "double/vek_double.h"
#include "support/plain.h"
#include "support/target.h"
#include "zelvek/base/error.h"
#include "zelvek/publishing/dns_backends.h"
#include "zelvek/publishing/dns_record.h"

namespace {

const std::string kJoined = "exec 2>&1\n";  // the line before each command
const std::string kSecret = "c2VjcmV0IG9mIHRoZSB0ZXN0";

/// A key file of this process, readable by its owner alone.
std::string KeyFile() {
    std::string file = (std::filesystem::temp_directory_path() / "tsig.XXXXXX").string();
    close(mkstemp(file.data()));
    std::ofstream(file) << "key \"fuzz\" {\n\talgorithm hmac-sha256;\n\tsecret \"" << kSecret << "\";\n};\n";
    return file;
}

const zelvek::dns::Settings& Ready() {
    static const zelvek::dns::Settings settings{
        {"dns-server", "127.0.0.1"},
        {"dns-port", 5353},
        {"dns-key-file", KeyFile()},
        {"dns-zone", std::vector<std::string>{"example.org", "m\xc3\xbcller.example"}}};
    return settings;
}

struct Change {
    std::string zone, name, value;
    bool removal = false;
};

/// Every command is the tool's own, and the secret is not in it.
void HoldCommands(const vek_double::World& world) {
    for (const auto& call : world.calls()) {
        fuzz::Hold((call.text + call.detail).find(kSecret) == std::string::npos,
                   "the key's secret stays in its file");
        if (call.kind != "child") continue;
        fuzz::Hold(call.text.starts_with(kJoined), "a tool's complaints are read");
        const auto words = plain::ShellWords(call.text.substr(kJoined.size()));
        fuzz::Hold(words.size() == (words[0] == "dig" ? 19U : 8U), "no value becomes a word of the command");
    }
}

/// What goes to nsupdate is one change of one record.
void HoldUpdate(const std::string& commands, const Change& change) {
    const auto record = zelvek::dns::CheckedRecord(change.zone, change.name, change.value);
    const std::string what = change.removal ? "update delete " + record.name + ". IN TXT "
                                            : "update add " + record.name + ". 60 IN TXT ";
    const std::vector<std::string> lines{"server 127.0.0.1 5353", "zone " + record.zone + ".",
                                         what + zelvek::dns::Quoted(record.value), "send", "quit"};
    fuzz::Hold(record.IsInZone(), "a record is changed inside its zone only");
    fuzz::Hold(plain::Lines(commands) == lines, "one change goes out, of just this record");
}

void Carry(zelvek::dns::Backend& backend, const Change& change) {
    if (change.removal)
        backend.RemoveTxt(change.zone, change.name, change.value);
    else
        backend.AddTxt(change.zone, change.name, change.value);
}

}  // namespace

void fuzz::Target(FuzzedDataProvider& input) {
    const auto fails = input.ConsumeIntegral<std::uint8_t>();
    Change change{TakeText(input), TakeText(input), TakeText(input), (fails & 4U) != 0};
    const std::string output = TakeRest(input);
    vek_double::World world;
    world.AlwaysChild(kJoined + "dig *", [&](const std::string&) {
        return vek_double::ChildAnswer{output, fails & 1};
    });
    world.AlwaysChild(kJoined + "nsupdate *", [&](const std::string&) {
        return vek_double::ChildAnswer{output, fails & 2};
    });
    const auto backend = zelvek::dns::MakeBackend(Ready());
    std::string type;
    try {
        Carry(*backend, change);
    } catch (const zelvek::Error& error) {
        type = zelvek::Word(error.code());
        Hold(type == "value" || type == "dns" || (type == "exists" && !change.removal),
             "an error is one of the back end's");
        Hold(type != "exists" || output.find(zelvek::dns::Quoted(change.value)) != std::string::npos,
             "only what the server shows is there already");
    }
    HoldCommands(world);
    const auto inputs = world.Lines({"input"});
    const bool update_fails = (fails & 2U) != 0;
    Hold(inputs.size() <= (update_fails ? 3U : 2U),
         "one question, one change, and a question why that failed at most");
    if (inputs.size() >= 2) HoldUpdate(inputs[1].substr(std::string("input: ").size()), change);
    if (inputs.size() >= 2 && update_fails) HoldEqual(type, "dns", "an update that fails is an error");
}
