// How packets carry their samples: as they are, or in a codec of the library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "../wf_codecs.hpp"

using Counts = std::vector<int32_t>;

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

// Encodes in the codec, or raw where that can't hold the samples. Returns the codec used.
inline int encode_counts(int codec, const Counts& counts, std::string& bytes) {
    if (codec != kRaw) {
        const Codec& chosen = codecs()[static_cast<std::size_t>(codec - 1)];
        const int mark = elog_mark();
        Bytes packed;
        if (chosen.encode(filled_up(chosen, counts), packed)) {
            bytes = packed.view();
            return codec;
        }
        elog_flush(0, mark);
    }
    bytes = packet_of(counts);
    return kRaw;
}

// Decodes as many counts as there is room for. False, perhaps with the reason registered, when the
// bytes are not those of so many. No codec needs more bytes than are allowed here.
inline bool decode_counts(int codec, std::string_view bytes, Counts& counts) {
    if (codec < 0 || codec >= codec_count() || bytes.size() > 9 * counts.size() + 100) return false;
    Series series;
    if (codec == kRaw ? !read_packet(bytes, series)
                      : !codecs()[static_cast<std::size_t>(codec - 1)].decode(bytes, series))
        return false;
    // A codec of blocks gives more, where the last block was filled up.
    if (static_cast<std::size_t>(series.count) < counts.size()) return false;
    counts.assign(series.data, series.data + counts.size());
    return true;
}
