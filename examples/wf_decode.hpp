// Decodes the CM6 data of a section.
#pragma once

#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

#include "morva.h"
#include "wf_sections.hpp"

// The samples of one section, in a buffer that serves section after section.
struct Decoder {
    int32_t* samples = nullptr;
    int nsamp = 0;
    int buffer_size = 0;
    Um6_verdict verdict{};
    double seconds = 0;
    Decoder() = default;
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder() { std::free(samples); }
};

inline bool decode_text(std::string_view text, Decoder& decoder) {
    const int nbytes = static_cast<int>(text.size()), mark = elog_mark();
    const auto start = std::chrono::steady_clock::now();
    const int result =
        um6(text.data(), nbytes, &decoder.samples, &decoder.nsamp, &decoder.buffer_size);
    const auto end = std::chrono::steady_clock::now();
    decoder.seconds = std::chrono::duration<double>(end - start).count();
    // What um6 registers is asked for again, together with the samples that can be saved.
    if (result < 0) elog_flush(0, mark);
    return result >= 0;
}

inline void decode(const Section* section, Decoder& decoder) {
    const std::string_view text(section->text, static_cast<std::size_t>(section->length));
    decoder.verdict = {};
    if (decode_text(text, decoder)) return;
    // A blank behind a value ends the data, but there are writers that pad every line.
    const std::string bare = without_padding(text);
    if (bare.size() < text.size() && decode_text(bare, decoder)) return;
    um6_anyway(text.data(), static_cast<int>(text.size()), &decoder.samples, &decoder.nsamp,
               &decoder.buffer_size, &decoder.verdict);
}
