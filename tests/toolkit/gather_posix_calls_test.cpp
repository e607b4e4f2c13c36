// Sending a list through a system that does as it is told: each call takes so many bytes, or fails.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <vector>

#include "tests/support/bytes.hpp"

namespace {

struct System {
    std::deque<std::int64_t> answers;  // bytes taken at most, or an error below 0; after the last one all is taken
    vesk::test::Bytes taken;
    std::vector<std::size_t> vectors;  // of each call
    std::vector<std::uint64_t> bytes;  // offered in each call
    std::vector<int> flags;
    bool copies = true;  // what it takes

    ssize_t call(const iovec* given, std::size_t count) {
        std::uint64_t room = INT64_MAX;
        if (!answers.empty()) {
            const std::int64_t answer = answers.front();
            answers.pop_front();
            errno = answer < 0 ? static_cast<int>(-answer) : 0;
            if (answer < 0) return -1;
            room = static_cast<std::uint64_t>(answer);
        }
        std::uint64_t offered = 0;
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_NE(given[i].iov_len, 0u);
            const auto* data = static_cast<const std::uint8_t*>(given[i].iov_base);
            const std::uint64_t left = room > offered ? room - offered : 0;
            if (copies) taken.insert(taken.end(), data, data + std::min<std::uint64_t>(left, given[i].iov_len));
            offered += given[i].iov_len;
        }
        vectors.push_back(count);
        bytes.push_back(offered);
        return static_cast<ssize_t>(std::min(room, offered));
    }
};

System* the_system;

ssize_t told_writev(int, const iovec* vectors, int count) {
    return the_system->call(vectors, static_cast<std::size_t>(count));
}
ssize_t told_sendmsg(int, const msghdr* message, int flags) {
    the_system->flags.push_back(flags);
    return the_system->call(message->msg_iov, message->msg_iovlen);
}

}  // namespace

#define writev told_writev
#define sendmsg told_sendmsg
#include <vesk/vesk_gather_posix.h>

namespace vesk::test {
namespace {

// A list of segments of 1 to 7 bytes, now and then an empty one, and its bytes.
struct List {
    explicit List(std::uint32_t count) {
        for (std::uint32_t i = 0; i < 7 * count; ++i) bytes.push_back(static_cast<std::uint8_t>(i * 31));
        std::size_t at = 0;
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::size_t length = i % 5 == 0 ? 0 : 1 + i % 7;
            segments.push_back({bytes.data() + at, length});
            at += length;
        }
        bytes.resize(at);
    }
    Bytes bytes;
    std::vector<vesk_segment> segments;
    vesk_sending begin() const {
        return vesk_begin_sending(segments.data(), static_cast<std::uint32_t>(segments.size()));
    }
};

struct gather_posix : ::testing::Test {
    gather_posix() { the_system = &system; }
    System system;
};

int write_all(vesk_sending* sending) { return vesk_write_all(0, sending); }
int send_all(vesk_sending* sending) { return vesk_send_all(0, sending, MSG_NOSIGNAL); }

TEST_F(gather_posix, whole_list_goes_out_in_one_call) {
    for (const auto all : {write_all, send_all}) {
        const List list(200);
        system = {};
        vesk_sending sending = list.begin();
        EXPECT_EQ(all(&sending), 0);
        EXPECT_EQ(system.vectors, std::vector<std::size_t>{160}) << "empty ones are left out";
        EXPECT_EQ(system.taken, list.bytes);
        EXPECT_EQ(sending.sent, list.bytes.size());
        EXPECT_EQ(sending.left, 0u);
    }
    EXPECT_EQ(system.flags, std::vector<int>{MSG_NOSIGNAL});
}

TEST_F(gather_posix, empty_list_makes_no_call) {
    const vesk_segment nothing[2] = {{nullptr, 0}, {&nothing, 0}};
    for (const std::uint32_t count : {0u, 1u, 2u}) {
        vesk_sending sending = vesk_begin_sending(count != 0 ? nothing : nullptr, count);
        EXPECT_EQ(vesk_write_all(0, &sending), 0);
        EXPECT_EQ(vesk_send_all(0, &sending, 0), 0);
        EXPECT_EQ(sending.left, 0u);
    }
    EXPECT_TRUE(system.vectors.empty());
}

TEST_F(gather_posix, call_that_takes_any_part_is_followed_by_one_for_the_rest) {
    const List list(40);
    for (std::size_t first = 1; first < list.bytes.size(); ++first) {
        system = {};
        system.answers = {static_cast<std::int64_t>(first), 1, -EINTR, 2};
        vesk_sending sending = list.begin();
        ASSERT_EQ(vesk_write_all(0, &sending), 0) << first;
        ASSERT_EQ(system.taken, list.bytes) << first;
        ASSERT_EQ(sending.sent, list.bytes.size());
    }
}

TEST_F(gather_posix, list_of_any_length_goes_out_in_turns) {
    const List list(5000);
    vesk_sending sending = list.begin();
    EXPECT_EQ(vesk_send_all(0, &sending, 0), 0);
    EXPECT_EQ(system.taken, list.bytes);
    EXPECT_EQ(system.vectors, (std::vector<std::size_t>{256, 256, 256, 256, 256, 256, 256, 256, 256, 256, 256, 256, 256,
                                                        256, 256, 160}));
}

TEST_F(gather_posix, error_ends_it_and_the_next_call_goes_on_where_it_was) {
    for (const int error : {EAGAIN, EPIPE, ENOBUFS}) {
        const List list(40);
        system = {};
        system.answers = {7, -error, -error, 5, -error};
        vesk_sending sending = list.begin();
        for (const std::uint64_t sent : {7u, 7u, 12u}) {
            errno = 0;
            EXPECT_EQ(vesk_send_all(0, &sending, 0), -1);
            EXPECT_EQ(errno, error);
            EXPECT_EQ(sending.sent, sent);
            EXPECT_EQ(system.taken, Bytes(list.bytes.begin(), list.bytes.begin() + static_cast<std::ptrdiff_t>(sent)));
        }
        EXPECT_EQ(vesk_send_all(0, &sending, 0), 0);
        EXPECT_EQ(system.taken, list.bytes);
    }
}

TEST_F(gather_posix, system_that_takes_nothing_is_an_error_and_not_asked_for_ever) {
    const List list(40);
    system.answers = {3, 0};
    vesk_sending sending = list.begin();
    EXPECT_EQ(vesk_write_all(0, &sending), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(sending.sent, 3u);
}

// No call is offered more bytes than it can count, be it of one segment or of several together.
TEST_F(gather_posix, more_than_a_call_can_count_goes_out_in_turns) {
    constexpr std::uint64_t most = 1 << 30;
    const std::uint8_t byte = 0;
    const vesk_segment segments[] = {{&byte, most - 1}, {&byte, 5 * most + 3}, {&byte, 4}};
    vesk_sending sending = vesk_begin_sending(segments, 3);
    system.copies = false;
    EXPECT_EQ(vesk_write_all(0, &sending), 0);
    EXPECT_EQ(sending.sent, 6 * most + 6);
    EXPECT_EQ(system.bytes, (std::vector<std::uint64_t>{most, most, most, most, most, most, 6}));
}

TEST_F(gather_posix, vectors_for_a_call_of_the_callers_begin_at_the_rest) {
    const List list(40);
    vesk_sending sending = list.begin();
    iovec vectors[3];
    while (sending.left != 0) {
        const int count = vesk_next_vectors(&sending, vectors, 3);
        ASSERT_GT(count, 0);
        system.answers = {4};
        vesk_count_sent(&sending, static_cast<std::uint64_t>(system.call(vectors, static_cast<std::size_t>(count))));
    }
    EXPECT_EQ(system.taken, list.bytes);
    EXPECT_EQ(vesk_next_vectors(&sending, vectors, 3), 0);
}

}  // namespace
}  // namespace vesk::test
