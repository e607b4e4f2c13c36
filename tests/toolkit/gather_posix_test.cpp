// Sending a gathered message over a socket that takes little at a time, to a reader that takes its time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vesk/client_service.h>
#include <vesk/vesk_gather_posix.h>

#include <thread>

#include "tests/support/messages.hpp"
#include "tests/toolkit/gathered.hpp"

namespace vesk::test {
namespace {

// Two ends of a stream whose sender has room for little.
struct Pair {
    Pair() {
        const int room = 1;  // raised to the least there is
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::bad_alloc();
        setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair() {
        hang_up(0);
        hang_up(1);
    }
    void hang_up(int end) {
        if (ends[end] >= 0) close(ends[end]);
        ends[end] = -1;
    }
    int ends[2];
};

// Reads to the end of the stream.
Bytes read_all(int socket) {
    Bytes bytes;
    std::uint8_t chunk[1000];
    for (ssize_t count; (count = read(socket, chunk, sizeof chunk)) > 0;)
        bytes.insert(bytes.end(), chunk, chunk + count);
    return bytes;
}

// More segments than the system takes in one call.
struct LargeResponse {
    LargeResponse() : data(1000), elements(IOV_MAX) {
        for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i);
        for (vesk_idprom_data& idprom : elements) {
            idprom.eeprom.f20 = data.data();
            idprom.eeprom.f20_length = data.size() - static_cast<std::size_t>(&idprom - elements.data()) % 300;
            VESK_MARK(&idprom.eeprom, VESK_EEPROM_DATA_F20);
        }
        message.idprom_list = elements.data();
        message.idprom_list_count = static_cast<std::uint32_t>(elements.size());
        VESK_MARK(&message, VESK_RESP_INV_DATA_IDPROM_LIST);
    }
    Bytes data;
    std::vector<vesk_idprom_data> elements;
    vesk_resp_inv_data message{};
};

TEST(gather_over_a_socket, more_segments_than_one_call_takes_arrive_whole) {
    const LargeResponse response;
    const Gathered gathered = gather(facts_of("resp_inv_data"), &response.message);
    ASSERT_GT(gathered.count, static_cast<std::uint32_t>(IOV_MAX));
    for (const bool with_writev : {true, false}) {
        Pair pair;
        Bytes received;
        std::thread reader([&] { received = read_all(pair.ends[1]); });
        vesk_sending sending = vesk_begin_sending(gathered.segments.data(), gathered.count);
        EXPECT_EQ(
            with_writev ? vesk_write_all(pair.ends[0], &sending) : vesk_send_all(pair.ends[0], &sending, MSG_NOSIGNAL),
            0);
        pair.hang_up(0);
        reader.join();
        EXPECT_TRUE(received == encoded(response.message));
        EXPECT_EQ(sending.sent, received.size());
    }
}

TEST(gather_over_a_socket, sender_that_may_not_wait_goes_on_when_there_is_room) {
    const LargeResponse response;
    const Gathered gathered = gather(facts_of("resp_inv_data"), &response.message);
    Pair pair;
    fcntl(pair.ends[0], F_SETFL, O_NONBLOCK);
    vesk_sending sending = vesk_begin_sending(gathered.segments.data(), gathered.count);
    ASSERT_EQ(vesk_write_all(pair.ends[0], &sending), -1);  // nobody reads yet
    ASSERT_EQ(errno, EAGAIN);
    Bytes received;
    std::thread reader([&] { received = read_all(pair.ends[1]); });
    while (vesk_write_all(pair.ends[0], &sending) != 0 && errno == EAGAIN) {
        pollfd room{pair.ends[0], POLLOUT, 0};
        poll(&room, 1, -1);
    }
    EXPECT_EQ(sending.left, 0u);
    pair.hang_up(0);
    reader.join();
    EXPECT_TRUE(received == encoded(response.message));
}

TEST(gather_over_a_socket, closed_end_is_an_error_without_a_signal) {
    const LargeResponse response;
    const Gathered gathered = gather(facts_of("resp_inv_data"), &response.message);
    Pair pair;
    pair.hang_up(1);
    vesk_sending sending = vesk_begin_sending(gathered.segments.data(), gathered.count);
    EXPECT_EQ(vesk_send_all(pair.ends[0], &sending, MSG_NOSIGNAL), -1);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(sending.sent, 0u);
}

}  // namespace
}  // namespace vesk::test
