// How packets carry their samples: as they are, or in a codec of the library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../wf_codecs.hpp"

// Packets name a codec by number: 0 is big-endian integers, then those of codecs() in their order.
constexpr int kRaw = 0;

inline int codec_count() {
    return static_cast<int>(codecs().size()) + 1;
}

inline const char* codec_name(int codec) {
    return codec == kRaw ? "raw" : codecs()[static_cast<std::size_t>(codec - 1)].name;
}

// The number of a name, or -1.
inline int codec_number(std::string_view name) {
    for (int i = 0; i < codec_count(); ++i)
        if (name == codec_name(i)) return i;
    return -1;
}

// How a packet carries its samples. Raw ones have no bytes here: they are put as integers.
struct Payload {
    int codec = kRaw;
    std::string bytes = {};
};

// Encodes packet after packet, in a buffer of its own.
class Encoder {
  public:
    // In the codec, or raw where that can't hold the samples.
    Payload encode(int codec, Samples samples) {
        if (codec == kRaw || !pack(codecs()[static_cast<std::size_t>(codec - 1)], samples))
            return {};
        return {codec, std::string(packed_.view())};
    }

  private:
    bool pack(const Codec& codec, Samples samples) {
        const int mark = elog_mark();
        const bool good = left_over(codec, samples.size()) == 0
                              ? codec.encode(samples, packed_)
                              : codec.encode(filled_up(codec, samples), packed_);
        if (!good) elog_flush(0, mark);
        return good;
    }
    Bytes packed_;
};

// Decodes packet after packet, in buffers of its own, one for each codec.
class Decoders {
  public:
    // Decodes as many samples as the packet is said to have; they stay until the next call. False,
    // perhaps with the reason registered, when the bytes are not those of so many. No codec needs
    // more bytes than are allowed here.
    bool decode(int codec, std::string_view bytes, int nsamp, Samples* samples) {
        const auto count = static_cast<std::size_t>(nsamp);
        if (codec < 0 || codec >= codec_count() || bytes.size() > 9 * count + 100) return false;
        Series& series = series_[static_cast<std::size_t>(codec)];
        series.most = nsamp;
        if (codec == kRaw ? !read_packet(bytes, series)
                          : !codecs()[static_cast<std::size_t>(codec - 1)].decode(bytes, series))
            return false;
        // A codec of blocks gives more, where the last block was filled up.
        if (series.count < nsamp) return false;
        *samples = {series.data, count};
        return true;
    }

  private:
    std::vector<Series> series_{static_cast<std::size_t>(codec_count())};
};
