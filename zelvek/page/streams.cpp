#include "zelvek/page/streams.h"

#include <microhttpd.h>

#include <string>

#include "zelvek/base/signals_blocked.h"

namespace zelvek::page {

Streams::Streams(std::chrono::milliseconds pause) : pause_(pause) {
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { Run(); });
}

Streams::~Streams() {
    End();
    thread_.join();
}

void Streams::Tell() {
    const std::lock_guard lock(mutex_);
    news_ = true;
    changed_.notify_one();
}

void Streams::Run() {
    std::unique_lock lock(mutex_);
    while (!end_) {
        changed_.wait(lock, [this] { return news_ || end_; });
        news_ = false;
        ++version_;
        WakeAll();
        changed_.wait_for(lock, pause_, [this] { return end_; });
    }
}

void Streams::WakeAll() {
    for (const auto& stream : streams_) {
        if (!stream->sleeps) continue;
        stream->sleeps = false;
        MHD_resume_connection(stream->connection);
    }
}

Streams::Stream* Streams::Open(MHD_Connection* connection, std::function<bool()> holds) {
    const std::lock_guard lock(mutex_);
    if (streams_.size() >= kAltogether) {
        Stream& oldest = *streams_.front();
        oldest.ends = true;
        if (oldest.sleeps) MHD_resume_connection(oldest.connection);
        oldest.sleeps = false;
    }
    streams_.push_back(std::make_unique<Stream>(Stream{this, connection, std::move(holds)}));
    return streams_.back().get();
}

void Streams::Close(Stream* stream) {
    const std::lock_guard lock(mutex_);
    streams_.remove_if([&](const auto& one) { return one.get() == stream; });
}

long Streams::Read(Stream& stream, char* buffer, std::size_t size) {
    // Asked without the lock: it looks into the store, whose changes come here.
    if (!stream.holds()) return -1;
    Streams& all = *stream.all;
    const std::lock_guard lock(all.mutex_);
    if (all.end_ || stream.ends) return -1;
    if (stream.told == all.version_) {
        stream.sleeps = true;
        MHD_suspend_connection(stream.connection);
        return 0;
    }
    stream.told = all.version_;
    const std::string text = "retry: 2000\ndata: " + std::to_string(stream.told) + "\n\n";
    if (text.size() > size) return -1;
    text.copy(buffer, text.size());
    return static_cast<long>(text.size());
}

void Streams::End() {
    const std::lock_guard lock(mutex_);
    end_ = true;
    WakeAll();
    changed_.notify_one();
}

}  // namespace zelvek::page
