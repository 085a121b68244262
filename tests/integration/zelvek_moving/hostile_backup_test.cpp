// Backups that were changed, cut, or made by somebody else.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>
#include <sstream>

#include "panel.h"
#include "zelvek/base/descriptor.h"
#include "zelvek/moving/archive.h"

namespace moving_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using zelvek::moving::ArchiveWriter;
using zelvek::moving::Manifest;

const std::string kPlace = "certificates/alice/shop.example/";

std::string Sha256(const std::string& content) {
    zelvek::moving::Digest digest;
    digest.Take(content);
    return digest.Text();
}

class HostileBackup : public Panels {
protected:
    /// Whatever is believed of a size: no file gets large.
    HostileBackup() {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{64UL << 20, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
    }

    ~HostileBackup() override {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

    using Files = std::vector<std::pair<std::string, std::string>>;

    /// An archive of these files, with a manifest that knows them all.
    fs::path Archive(const Files& files, const std::function<void(Manifest&)>& change = {}) {
        Manifest manifest;
        manifest.time = "2031-02-03 11:20:14";
        manifest.jobs = kJobs + 1;
        manifest.certificates = 1;
        for (const auto& [name, content] : files) manifest.files[name] = {content.size(), Sha256(content)};
        if (change) change(manifest);
        return Write([&](ArchiveWriter& archive) {
            for (const auto& [name, content] : files) archive.Add(name, content);
            archive.Add("manifest.json", zelvek::moving::Write(manifest));
        });
    }

    fs::path Write(const std::function<void(ArchiveWriter&)>& add) {
        const fs::path file = Path("hostile");
        const zelvek::Descriptor opened = zelvek::Open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ArchiveWriter archive(zelvek::moving::ToFile(opened.get()));
        add(archive);
        archive.Finish();
        return file;
    }

    /// An archive with one entry, of a kind and with a size (octal digits) as tar's headers have them.
    fs::path Odd(char kind, const std::string& size = "0") {
        std::string header(512, '\0');
        const auto put = [&header](std::size_t at, const std::string& text) {
            header.replace(at, text.size(), text);
        };
        put(0, kPlace + "privkey.pem");
        put(100, "0000600");
        put(124, size);
        put(136, "0");
        put(148, "        ");
        put(156, std::string(1, kind));
        if (kind != '0') put(157, "/etc/passwd");
        put(257, kind == 'S' ? "ustar  " : std::string("ustar\00000", 8));
        if (kind == 'S') put(483, "77777777777");  // how large it is with its holes
        int sum = 0;
        for (const char c : header) sum += static_cast<unsigned char>(c);
        std::ostringstream digits;
        digits << std::oct << sum;
        put(148, digits.str() + std::string("\0 ", 2));
        const fs::path file = Path("odd");
        parts::Put(file, header + std::string(1024, '\0'));
        return file;
    }

    /// What a backup of the old machine has.
    Files Whole() {
        AddInstalled("shop.example", pki_);
        const fs::path file = Backup();
        const fs::path database = Path("database");
        EXPECT_EQ(std::system(("tar -xOf " + file.string() + " zelvek.db >" + database.string()).c_str()), 0);
        return {{"zelvek.db", parts::Content(database)},
                {kPlace + "fullchain.pem", pki_.leaf.Pem() + pki_.intermediate.Pem()},
                {kPlace + "privkey.pem", pki_.leaf.KeyPem()}};
    }

    void ExpectRefused(const fs::path& file, const std::string& words) {
        const parts::Failure failure = Refusal(file);
        EXPECT_NE(failure.type, "none") << words;
        EXPECT_THAT(failure.text, HasSubstr(words));
        ExpectNothingRestored();
    }

    parts::Hierarchy pki_;
    rlimit before_{};
    void (*handler_)(int) = SIG_DFL;
};

// Behaviours of: Moving to another machine

// Behaviour: A backup whose files have other names than a backup's is refused, and nothing is written
// anywhere
TEST_F(HostileBackup, NamesThatLeadElsewhereAreRefused) {
    const Files whole = Whole();
    for (const std::string name :
         {"../evil", "/etc/evil", "certificates/../../evil/privkey.pem", "certificates/alice/../privkey.pem",
          "certificates//shop.example/privkey.pem", "certificates/alice/.hidden/privkey.pem",
          "certificates/alice/shop.example/other.pem", "certificates/alice/shop.example/deep/privkey.pem",
          "./zelvek.db", "zelvek.db-wal", "certificates/alice/*.shop.example/privkey.pem", "etc"}) {
        Files files = whole;
        files.emplace_back(name, "content");
        ExpectRefused(Archive(files), "no file in it may be named");
    }
    EXPECT_FALSE(fs::exists(Path("evil")));
}

// Behaviour: Links, folders, devices and files with holes in a backup are refused
TEST_F(HostileBackup, WhatIsNoFileIsRefused) {
    for (const char kind : {'1', '2', '3', '4', '5', '6'}) ExpectRefused(Odd(kind), "is no file");
    ExpectRefused(Odd('S'), "privkey.pem");
}

// Behaviour: A backup whose sizes are beyond all measure is refused before that much is written
TEST_F(HostileBackup, HugeSizesAreRefused) {
    ExpectRefused(Odd('0', "77777777777"), "is too large");
    Files files = Whole();
    files[2].second += std::string(300000, '\n');
    ExpectRefused(Archive(files), "is too large");
}

// Behaviour: A backup has each file once, all that its manifest names and no others, and each as it names it
TEST_F(HostileBackup, FilesAndManifestHaveToAgree) {
    const Files whole = Whole();
    Files files = whole;
    files.push_back(whole[2]);
    ExpectRefused(Archive(files), "stands in it twice");
    files = {whole[0], whole[1]};
    ExpectRefused(Archive(files), "a key or a certificate is missing");
    files = {whole[1], whole[2]};
    ExpectRefused(Archive(files), "it has no database");
    ExpectRefused(Archive(whole, [](Manifest& manifest) { manifest.files["zelvek.db"].size += 1; }),
                  "was changed");
    ExpectRefused(Archive(whole, [](Manifest& manifest) { manifest.files.erase(kPlace + "privkey.pem"); }),
                  "does not know");
    ExpectRefused(Archive(whole, [](Manifest& manifest) { manifest.files["certificates/a/b/x"] = {}; }),
                  "is missing in it");
    ExpectRefused(Archive(whole, [](Manifest& manifest) { manifest.jobs = 7; }), "counts other jobs");
    ExpectRefused(Archive(whole, [](Manifest& manifest) { manifest.certificates = 7; }), "counts other");
    Manifest none;
    none.time = "2031-02-03 11:20:14";
    ExpectRefused(Write([&](ArchiveWriter& archive) {
                      archive.Add("manifest.json", zelvek::moving::Write(none));
                      archive.Add("zelvek.db", whole[0].second);
                  }),
                  "stands behind its manifest");
    for (const std::string text :
         {"", "{", "[]", "7", "{\"format\":\"x\"}", "{\"format\":1,\"files\":7}",
          "{\"format\":1,\"time\":\"soon\"}",
          "{\"format\":1,\"time\":\"2031-02-03 11:20:14\",\"files\":{\"zelvek.db\":[]}}"}) {
        ExpectRefused(Write([&](ArchiveWriter& archive) { archive.Add("manifest.json", text); }), "manifest");
    }
    ExpectRefused(Write([&](ArchiveWriter& archive) { archive.Add("manifest.json", "{\"format\":2}"); }),
                  "another format");
}

// Behaviour: A key in a backup that does not fit its certificate, and a database that is damaged or none, are
//   refused before anything is installed
TEST_F(HostileBackup, ContentsAreCheckedBeforeAnythingIsInstalled) {
    const Files whole = Whole();
    Files files = whole;
    files[2].second = parts::Hierarchy().leaf.KeyPem();
    EXPECT_EQ(Refusal(Archive(files)).type, "badkey");
    ExpectNothingRestored();
    files = whole;
    files[0].second = "no database";
    ExpectRefused(Archive(files), "database");
    files = whole;
    for (std::size_t at = 8192; at < files[0].second.size(); at += 4096) files[0].second[at] = '\x7f';
    ExpectRefused(Archive(files), "");
}

// Behaviour: A backup that was cut, or in which a byte of a file was changed, is refused
TEST_F(HostileBackup, IsRefusedWhereItWasChangedOrCut) {
    Whole();
    const fs::path whole = Backup();
    const auto size = fs::file_size(whole);
    const fs::path file = Path("changed");
    for (const std::uintmax_t at : {600UL, 40000UL, 300000UL}) {
        fs::copy_file(whole, file, fs::copy_options::overwrite_existing);
        Change(file, at);
        ExpectRefused(file, "");
    }
    for (const std::uintmax_t rest : {0UL, 1UL, 511UL, 512UL, 100000UL, size - 12000}) {
        fs::copy_file(whole, file, fs::copy_options::overwrite_existing);
        fs::resize_file(file, rest);
        ExpectRefused(file, "");
    }
    parts::Put(file, "something else");
    ExpectRefused(file, "");
    EXPECT_EQ(Restore(whole).installed, 1) << "unchanged it is taken";
}

// Behaviour: Of an encrypted backup no byte can be changed ...
// The archive's end, where a reader of archives stops, is not the end of what was encrypted.
TEST_F(HostileBackup, IsRefusedWhereTheEndBehindTheArchiveIsMissing) {
    const zelvek::moving::Secret key{zelvek::moving::Secret::Kind::kKey, std::string(32, 'k')};
    const fs::path file = Path("sealed");
    {
        const zelvek::Descriptor opened = zelvek::Open(file, O_WRONLY | O_CREAT | O_EXCL, 0600);
        zelvek::moving::Sealer sealer(zelvek::moving::ToFile(opened.get()), key);
        sealer.Take(parts::Content(Backup()) + std::string(200000, '\0'));
        sealer.Finish();
    }
    const auto size = fs::file_size(file);
    fs::copy_file(file, Path("cut"));
    fs::resize_file(Path("cut"), size - (size - 49) % 65552);
    EXPECT_THAT(Refusal(Path("cut"), key).text, HasSubstr("it was cut"));
    ExpectNothingRestored();
    EXPECT_EQ(Restore(file, key).manifest.jobs, kJobs);
}

// Behaviour: Of an encrypted backup no byte can be changed ...
TEST_F(HostileBackup, IsRefusedWhereAnEncryptedOneWasChanged) {
    const zelvek::moving::Secret key{zelvek::moving::Secret::Kind::kKey, std::string(32, 'k')};
    Whole();
    const fs::path whole = Backup(key);
    const fs::path file = Path("changed");
    for (const std::uintmax_t at : {0UL, 20UL, 60UL, 100000UL, fs::file_size(whole) - 1}) {
        fs::copy_file(whole, file, fs::copy_options::overwrite_existing);
        Change(file, at);
        EXPECT_EQ(Refusal(file, key).type, "value") << at;
        ExpectNothingRestored();
    }
    fs::resize_file(file, fs::file_size(whole) / 2);
    EXPECT_EQ(Refusal(file, key).type, "value");
    EXPECT_THAT(Refusal(whole).text, HasSubstr("--passphrase-file or --key-file"));
    EXPECT_THAT(Refusal(Backup(), key).text, HasSubstr("is not encrypted")) << "somebody put it there";
    ExpectNothingRestored();
    EXPECT_EQ(Restore(whole, key).installed, 1);
}

}  // namespace
}  // namespace moving_test
