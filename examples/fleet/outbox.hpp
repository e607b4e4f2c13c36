// What a chassis has to say and the collector has not answered yet: a queue with an end.
//
//     notifications --> waiting (64) --> window (16, numbered) --> answered
//     inventory due ------------------>
//
// A message gets its sequence number when it enters the window, and from there it leaves by an answer alone, so the
// numbers have no gaps. When the waiting notifications are too many, the oldest of them is dropped and counted, and the
// inventory is due again, since it has what was dropped. The inventory never waits as bytes: it is encoded when its
// turn comes and is the newest then. One of them is in the window at a time.
#pragma once

#include <algorithm>
#include <chrono>
#include <deque>
#include <utility>

#include "envelope.hpp"

namespace fleet {

using namespace std::chrono_literals;

class Outbox {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Message {
        Envelope envelope;
        Bytes body;
        Time since;  // when it got its number
    };

    // The session of a boot; nothing is due but the inventory.
    explicit Outbox(std::uint64_t session) : session_(session) {}

    std::uint64_t session() const { return session_; }
    std::uint64_t numbered() const { return next_sequence_ - 1; }
    std::uint64_t answered() const { return next_sequence_ - 1 - window_.size(); }
    std::uint64_t dropped() const { return dropped_; }
    std::uint64_t sent_again() const { return sent_again_; }
    Time::duration longest_wait() const { return longest_wait_; }  // of a message for its answer
    std::size_t waiting() const { return waiting_.size(); }
    bool empty() const { return window_.empty() && waiting_.empty() && !inventory_due_; }

    void want_inventory() { inventory_due_ = true; }

    void add_notification(Bytes body) {
        waiting_.push_back(std::move(body));
        if (waiting_.size() <= waiting_limit) return;
        waiting_.pop_front();
        dropped_ += 1;
        inventory_due_ = true;
    }

    // All up to `sequence` is committed.
    void take_answer(const Answer& answer, Time now) {
        if (answer.session != session_ || answer.sequence > numbered()) return;
        bool news = false;
        for (; !window_.empty() && window_.front().envelope.sequence <= answer.sequence; news = true) {
            longest_wait_ = std::max(longest_wait_, now - window_.front().since);
            inventory_in_window_ &= window_.front().envelope.kind != Kind::inventory;
            window_.pop_front();
            sent_ -= sent_ > 0;
        }
        if (!news) return;
        pause_ = shortest_pause;
        send_again_ = now + pause_;
    }

    // The next message that has no number and for which the window has room gets its number; null if there is none.
    // `inventory` encodes what the chassis has now.
    template <class Encode>
    const Message* number_next(Time now, Encode inventory) {
        const bool now_inventory = inventory_due_ && !inventory_in_window_;
        if (window_.size() == window || (!now_inventory && waiting_.empty())) return nullptr;
        Message& message = window_.emplace_back();
        message.since = now;
        message.envelope.session = session_;
        message.envelope.sequence = next_sequence_++;
        if (now_inventory) {
            message.envelope.kind = Kind::inventory;
            message.body = inventory();
            inventory_due_ = false;
            inventory_in_window_ = true;
        } else {
            message.envelope.kind = Kind::notification;
            message.body = std::move(waiting_.front());
            waiting_.pop_front();
        }
        return &message;
    }

    // Sends what of the window is not sent, as long as `send` takes it. If `again`, all of it once more when no answer
    // came for a time, which doubles each time.
    template <class Send>
    void send(Time now, bool again, Send send) {
        if (again && sent_ > 0 && now >= send_again_) {
            pause_ = std::min(pause_ * 2, longest_pause);
            send_all_again();
        }
        if (sent_ == 0) send_again_ = now + pause_;
        for (; sent_ < window_.size(); ++sent_) {
            Envelope& envelope = window_[sent_].envelope;
            envelope.first = window_.front().envelope.sequence;
            envelope.dropped = dropped_;
            if (!send(sealed(envelope, window_[sent_].body))) break;
        }
    }

    // As after a connection that broke.
    void send_all_again() {
        sent_again_ += sent_;
        sent_ = 0;
    }

private:
    static constexpr std::chrono::milliseconds shortest_pause = 500ms, longest_pause = 4s;

    std::uint64_t session_;
    std::uint64_t next_sequence_ = 1;
    std::uint64_t dropped_ = 0;
    std::uint64_t sent_again_ = 0;
    Time::duration longest_wait_{};
    std::deque<Message> window_;
    std::size_t sent_ = 0;  // of the window, from its front
    std::deque<Bytes> waiting_;
    bool inventory_due_ = true;
    bool inventory_in_window_ = false;
    std::chrono::milliseconds pause_ = shortest_pause;
    Time send_again_{};
};

}  // namespace fleet
