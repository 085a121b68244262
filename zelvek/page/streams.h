#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

struct MHD_Connection;

namespace zelvek::page {

/// The open pages' streams of changes (server-sent events). While nothing changes none of them is looked at;
/// what changes quickly is told a few times a second. Safe from any thread.
class Streams {
public:
    static constexpr std::size_t kAltogether = 48;

    explicit Streams(std::chrono::milliseconds pause = std::chrono::milliseconds{400});
    ~Streams();
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;

    /// Something has changed.
    void Tell();

    /// One page's stream, for the library's callbacks.
    struct Stream {
        Streams* all;
        MHD_Connection* connection;
        std::function<bool()> holds;  // whether its session does
        unsigned long long told = 0;
        bool sleeps = false;
        bool ends = false;
    };

    /// A new stream; where there are too many, the oldest ends.
    Stream* Open(MHD_Connection* connection, std::function<bool()> holds);
    void Close(Stream* stream);

    /// What the stream has to say now, into the buffer; 0 where it sleeps from now on, -1 at its end.
    static long Read(Stream& stream, char* buffer, std::size_t size);

    /// All streams end, and no new one begins.
    void End();

private:
    void Run();
    void WakeAll();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::list<std::unique_ptr<Stream>> streams_;  // the oldest first
    std::chrono::milliseconds pause_;
    unsigned long long version_ = 1;
    bool news_ = false;
    bool end_ = false;
    std::thread thread_;
};

}  // namespace zelvek::page
