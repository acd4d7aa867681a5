#include "codec/zlib_state.hpp"

#include <algorithm>
#include <climits>
#include <optional>

#include "base/memory.hpp"
#include "digest/adler32.hpp"

namespace morva::zlib {
namespace {

void* allocate(void*, unsigned count, unsigned size) {
    return must_malloc(std::size_t{count} * size, "zlib state", MORVA_HERE);
}

void release(void*, void* block) {
    std::free(block);
}

// One direction of zlib: how its state is begun, made ready again and ended, and its work.
struct Direction {
    int (*begin)(z_stream*);
    int (*reset)(z_stream*);
    int (*end)(z_stream*);
    int (*work)(z_stream*, int flush);
    bool may_finish_again;  // whether Z_FINISH may be given before the last of the room
};

constexpr Direction kDeflate = {
    [](z_stream* stream) { return deflateInit(stream, Z_DEFAULT_COMPRESSION); }, deflateReset,
    deflateEnd, deflate, true};
// The check value of what is expanded is left to the library's own routine, which is faster.
int begin_unchecked(z_stream* stream) {
    const int result = inflateInit(stream);
    return result == Z_OK ? inflateValidate(stream, 0) : result;
}

constexpr Direction kInflate = {begin_unchecked, inflateReset, inflateEnd, inflate, false};

template <const Direction& kWay>
class State {
  public:
    ~State() {
        if (begun_) kWay.end(&stream_);
    }
    // The stream, ready to begin; null, with zlib's result, when that fails.
    z_stream* ready(int* result) {
        if (begun_) {
            *result = kWay.reset(&stream_);
        } else {
            stream_.zalloc = allocate;
            stream_.zfree = release;
            *result = kWay.begin(&stream_);
            begun_ = *result == Z_OK;
        }
        return *result == Z_OK ? &stream_ : nullptr;
    }

  private:
    z_stream stream_{};
    bool begun_ = false;
};

// The state of this thread. Destructors of other thread-local objects may still compress when it is
// gone, which the flag tells because it has no destructor: they get one that is made for the call.
template <const Direction& kWay>
class Lease {
  public:
    State<kWay>& state() { return t_gone ? own_.emplace() : t_kept.state; }

  private:
    struct Kept {
        State<kWay> state;
        ~Kept() { t_gone = true; }
    };
    static inline thread_local bool t_gone = false;
    static inline thread_local Kept t_kept;
    std::optional<State<kWay>> own_;
};

unsigned chunk_of(std::size_t left) {
    return static_cast<unsigned>(std::min<std::size_t>(left, UINT_MAX));
}

// zlib counts in 32 bits: longer input and output are handed over in chunks. With the last of them
// it is told to finish, which spares it the keeping of a window.
template <const Direction& kWay>
int run(const char* bytes, std::size_t n, char* out, std::size_t room, std::size_t* written,
        const Bytef** end = nullptr) {
    Lease<kWay> lease;
    int result;
    z_stream* stream = lease.state().ready(&result);
    if (stream == nullptr) return result;
    std::size_t left_in = n, left_out = room;
    stream->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes));
    stream->next_out = reinterpret_cast<Bytef*>(out);
    do {
        const unsigned in = stream->avail_in = chunk_of(left_in);
        const unsigned space = stream->avail_out = chunk_of(left_out);
        const bool last = in == left_in && (kWay.may_finish_again || space == left_out);
        result = kWay.work(stream, last ? Z_FINISH : Z_NO_FLUSH);
        left_in -= in - stream->avail_in;
        left_out -= space - stream->avail_out;
    } while (result == Z_OK);
    *written = room - left_out;
    if (end != nullptr) *end = stream->next_in;
    return result;
}

// The check value that ends a stream.
std::uint32_t check_value(const Bytef* end) {
    std::uint32_t value = 0;
    for (const Bytef* byte = end - 4; byte < end; ++byte) value = value << 8 | *byte;
    return value;
}

}  // namespace

int deflate_bytes(const char* bytes, std::size_t n, char* out, std::size_t room,
                  std::size_t* written) {
    const int result = run<kDeflate>(bytes, n, out, room, written);
    return result == Z_STREAM_END ? Z_OK : result;
}

int inflate_bytes(const char* bytes, std::size_t n, char* out, std::size_t room,
                  std::size_t* written) {
    const Bytef* end = nullptr;
    const int result = run<kInflate>(bytes, n, out, room, written, &end);
    if (result == Z_STREAM_END)
        return check_value(end) == adler::g_add(1, reinterpret_cast<Bytef*>(out), *written)
                   ? Z_OK
                   : Z_DATA_ERROR;
    // A stream that wants a dictionary is not ours, and one that stops with room to spare is cut.
    const bool cut = result == Z_BUF_ERROR && *written < room;
    return result == Z_NEED_DICT || cut ? Z_DATA_ERROR : result;
}

}  // namespace morva::zlib
