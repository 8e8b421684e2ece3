// The package that carries a piece of a file's content, compressed and encrypted on request.
//
// Sender: init once; per piece reset, set_data_length, the checks, set_compress, set_encrypt,
// set_data_content, set_data_end for the last one, send_package. Receiver: handle_head. Everything
// but init, handle_head, set_data_content and the attaching calls needs a head first.
//
// Content travels encrypted or not at all: without encryption the processed length, which says how
// much of the work buffer is sent or written to the file, stays what the last piece has left. So an
// empty file takes a datahead that has not carried anything, on both sides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "storage/package/chunkhead.h"

namespace dorvo {

struct data_package;

class DORVO_JOB_API datahead : public chunkhead {
public:
    datahead();
    // Attaches to a head of the caller's as set does.
    explicit datahead(uint8_t* buffer);
    // Copies share head and buffers until one of them takes more than its work buffer holds.
    datahead(const datahead&) = default;
    datahead& operator=(const datahead&) = default;

    // Makes a head of its own. Its tail has no place until set_encrypt, be it with 0.
    void init();
    // Gives the head up.
    void uninit();
    // Borrows 36 bytes as head; clears length, magic and address in them. True.
    bool set(uint8_t* buffer);
    // Clears what belongs to one piece; compression, encryption and address stay.
    void reset();

    void set_data_end();
    void set_data_length(uint32_t length);
    void set_data_check(uint32_t check);
    void set_data_processed_check(uint32_t check);
    // 0, 1 or 2, else false; added to what is there.
    bool set_data_check_algo(uint32_t algo);
    // 0 to 4, else false; 2 is zlib, 1, 3 and 4 do nothing.
    bool set_compress(uint16_t algo, uint16_t level);
    // 0 to 3, else false; all but 0 are AES. `extra` is the initialisation vector: false, with
    // error 87 and nothing changed, for more than the 16 bytes that receivers take.
    bool set_encrypt(uint16_t algo, uint16_t extra_length, const uint8_t* extra);
    // Copies the content in. False, with error 87, for 2 GiB and more.
    bool set_data_content(const uint8_t* data, uint64_t length);

    // Turns the content in the work buffer into what is sent. What cannot be compressed into the
    // buffer is encrypted only; what cannot be encrypted stays as it is, under the same head.
    // False, with error 87, only without a head.
    bool encode_data();
    // encode_data, then everything into an open request body; the invoker logs and keeps what goes
    // wrong with that.
    // The base's takes a copy, which sends nothing; this one is called instead of it, not through
    // it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
    bool send_package(HTTP_Invoker_T& invoker);
#pragma GCC diagnostic pop

    using chunkhead::handle_head;
    // Writes the content to the file being received; after the last piece sets its times and closes
    // it. False when the package is refused, when it cannot be decoded (nothing is written then;
    // error 13) and when the times cannot be set (the file stays open then).
    bool handle_head(uint8_t* package) override;

    uint32_t get_head_length() const;

    // The key of all packages: at most 35 bytes other than zero, and a zero. 16, 24 and 32 are the
    // lengths that encrypt.
    static void set_key(const uint8_t* key, uint32_t key_length);

private:
    static uint32_t get_aes_encode_length(uint32_t n);
    bool is_end_of_data() const;
    // Of the piece: the buffer may hold more, of an earlier one.
    std::span<const uint8_t> extra() const;
    bool decode_data(const data_package& package);
    void attach(uint8_t* head);
    void make_room(size_t capacity);

    uint8_t* head_ = nullptr;  // of owned_head_, or borrowed
    std::shared_ptr<uint8_t[]> owned_head_;
    std::shared_ptr<uint8_t[]> extra_;  // 16 bytes
    std::shared_ptr<uint8_t[]> work_;   // capacity_ bytes: content, processed in place
    int32_t processed_length_ = 0;      // what the last encoding or decoding gave
    uint64_t raw_length_ = 0;
    uint64_t capacity_ = 0;
    addresshead address_;
};

}  // namespace dorvo
