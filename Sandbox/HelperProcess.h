#pragma once

#include <chrono>
#include <cstddef>
#include <functional>

namespace quillmark {

/// One end of a connection between two of our processes.
class Channel {
public:
    /// Owns the descriptor; with -1 nothing can be sent.
    explicit Channel(int descriptor) : m_descriptor(descriptor) {}
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Whether to go on; asked between pieces, and whenever the patience is over.
    using GoesOn = std::function<bool()>;

    /// All of the bytes. False, with `errno`, when the other end has gone, or when nothing moved and it was
    /// not to go on (EAGAIN).
    bool send(const void* bytes, std::size_t size, const GoesOn& goesOn = {}) const;
    bool receive(void* bytes, std::size_t size, const GoesOn& goesOn = {}) const;
    /// What has come, and so many bytes at most; 0 for the same reasons.
    std::size_t receiveSome(void* bytes, std::size_t most, const GoesOn& goesOn = {}) const;

    /// All of the bytes, few as they are, without waiting. False when the other end has gone, or has left so
    /// much unread that there is no room for them.
    bool sendAtOnce(const void* bytes, std::size_t size) const;
    /// Whoever waits at either end hears that the other has gone.
    void shutDown() const;

    /// The same with an open file, or none (-1), that the other end has a descriptor of its own for then.
    bool sendWith(int file, const void* bytes, std::size_t size) const;
    /// The file that came with the bytes, which is the caller's, or -1. Further files are closed.
    bool receiveWith(int& file, void* bytes, std::size_t size, const GoesOn& goesOn = {}) const;

    /// Whether the other end is there and has sent nothing.
    bool isQuiet() const;
    /// Whether the other end has gone and nothing of it is left to be received.
    bool hasEnded() const;

    /// How long it waits for the other end at a time; for ever until it is set.
    void setPatience(std::chrono::milliseconds time) const;

private:
    const int m_descriptor;
};

/// A process beside this one, for the little that this one gives up and yet needs (`restrictProcess`).
/// Whoever asks may be an attacker by then, who has taken this process over: what comes through the channel
/// is nothing to rely on.
class HelperProcess {
public:
    /// Starts it: there `serve` runs with a copy of all that is here, with the other end of the channel, and
    /// should return when that has gone. While there is one thread. It has no standard streams, and no signal
    /// of the terminal ends it.
    explicit HelperProcess(const std::function<void(const Channel&)>& serve);

    /// False when the system allows no process more; nothing can be sent then.
    bool isThere() const { return m_isThere; }
    const Channel& channel() const { return m_channel; }

private:
    static int started(const std::function<void(const Channel&)>& serve, bool& isThere);

    bool m_isThere = false;
    Channel m_channel;
};

}  // namespace quillmark
