// A message out and back in, in C++20: encoded into a vector, decoded into a message that frees itself.
#include <vesk/client_service.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace {

void* from_heap(std::uint64_t size, void*) { return ::operator new(size, std::nothrow); }  // callbacks must not throw
void to_heap(void* block, void*) { ::operator delete(block); }

// A message that owns its blocks; `Free` is the type's own function.
template <class Message, auto Free>
struct Owned {
    Message message{};  // nothing is present, nothing is owned
    Owned() = default;
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { Free(&message, to_heap, nullptr, 0); }
};

template <auto Encode, class Message>
std::vector<std::uint8_t> encoded(const Message& message) {
    std::vector<std::uint8_t> bytes(64);
    const std::uint64_t length = Encode(&message, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    const bool was_too_short = length > bytes.size();
    bytes.resize(length);
    if (was_too_short) Encode(&message, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    return bytes;
}

}  // namespace

int main() {
    char colour[] = "green";
    vesk_led_data led{};  // not Owned: its text is not from the heap
    led.f3 = 2;
    led.f5 = colour;
    VESK_MARK(&led, VESK_LED_DATA_F3);
    VESK_MARK(&led, VESK_LED_DATA_F5);
    const std::vector<std::uint8_t> bytes = encoded<vesk_led_data_encode_ext>(led);
    std::printf("encoded: %zu bytes\n", bytes.size());

    Owned<vesk_led_data, vesk_led_data_free_ext> received;
    const std::int32_t code =
        vesk_led_data_decode_ext(&received.message, bytes.data(), bytes.size(), from_heap, nullptr, 0);
    if (code != VESK_OK) {
        std::fprintf(stderr, "round_trip: %s\n", vesk_result_text(code));
        return EXIT_FAILURE;
    }
    if (VESK_HAS(&received.message, VESK_LED_DATA_F5)) std::printf("colour: %s\n", received.message.f5);
    return EXIT_SUCCESS;
}
