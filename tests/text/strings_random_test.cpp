// The quick routines against plain ones, on random input.
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "support/kit.hpp"

namespace {

long rounds(long usual) {
    const char* wanted = getenv("MORVA_ROUNDS");
    return wanted != nullptr ? atol(wanted) : usual;
}

// The five steps of the notation, with the C library's functions.
std::string plain_strdbl(double value) {
    if (std::isinf(value)) return value < 0 ? "-Inf" : "Inf";
    double magnitude = std::fabs(value);
    int group = 0;
    if (magnitude != 0 && (magnitude > 1e10 || magnitude < 0.001)) {
        group = static_cast<int>(std::log10(magnitude) + 99) / 3 - 33;
        magnitude /= std::pow(10.0, 3 * group);
    }
    char text[64];
    snprintf(text, sizeof text, "%.15g", std::copysign(magnitude, value));
    std::string result = text;
    if (result.size() > 1 && result[0] == '0') result.erase(0, 1);
    if (group != 0) result.append("e").append(std::to_string(3 * group));
    return result;
}

void expect_same_text(double value) {
    char text[64];
    ASSERT_EQ(strdbl(text, value), plain_strdbl(value)) << "of " << std::hexfloat << value;
}

TEST(StrdblRandom, WritesWhatPrintfWrites) {
    std::mt19937_64 random(1);
    for (long i = rounds(100000); i > 0; --i) {
        const uint64_t bits = random();
        double any;
        memcpy(&any, &bits, sizeof any);
        if (!std::isnan(any)) expect_same_text(any);
        // Sizes of daily use, few digits, and ties at the sixteenth digit.
        expect_same_text(
            std::ldexp(static_cast<double>(bits >> 11), -53 + static_cast<int>(i % 44)));
        expect_same_text(static_cast<double>(bits % 2000000) / 1000);
        expect_same_text(static_cast<double>(bits >> 14) / 1048576);
    }
}

TEST(StrdblRandom, HoldsAtThePowersOfTen) {
    for (int exponent = -323; exponent <= 308; ++exponent) {
        char text[16];
        snprintf(text, sizeof text, "1e%d", exponent);
        const double power = std::strtod(text, nullptr);
        for (double value : {power, std::nextafter(power, 0), std::nextafter(power, INFINITY),
                             power * (1 - 4e-16), power * (1 - 1e-14), power * 9.99999999999999949})
            if (!std::isinf(value)) expect_same_text(value), expect_same_text(-value);
    }
    expect_same_text(std::numeric_limits<double>::max());
    expect_same_text(-0.0);
}

int plain_distance(const std::string& a, const std::string& b) {
    std::vector<int> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = static_cast<int>(j);
    for (size_t i = 1; i <= a.size(); ++i) {
        int diagonal = std::exchange(row[0], static_cast<int>(i));
        for (size_t j = 1; j <= b.size(); ++j) {
            const int replaced = diagonal + (a[i - 1] != b[j - 1]);
            diagonal = row[j];
            row[j] = std::min(replaced, 1 + std::min(row[j], row[j - 1]));
        }
    }
    return row[b.size()];
}

TEST(LevenshteinRandom, EqualsTheMatrix) {
    std::mt19937 random(2);
    const auto word = [&](size_t length, unsigned letters) {
        std::string text(length, ' ');
        for (char& c : text) c = static_cast<char>('\xf0' + random() % letters);
        return text;
    };
    const size_t lengths[] = {1, 2, 7, 63, 64, 65, 66, 127, 128, 129, 200, 300};
    for (size_t a : lengths)
        for (size_t b : lengths)
            for (unsigned letters : {2u, 4u, 15u}) {
                const std::string x = word(a, letters), y = word(b, letters);
                ASSERT_EQ(levenshtein_distance(x.c_str(), y.c_str()), plain_distance(x, y))
                    << a << " " << b << " " << letters;
            }
    // Few edits in long strings.
    for (int i = 0; i < 50; ++i) {
        const std::string x = word(500, 4);
        std::string y = x;
        for (int edits = 0; edits < 4; ++edits) {
            y[random() % y.size()] = 'x';
            y.erase(random() % y.size(), 1 + random() % 3);
        }
        ASSERT_EQ(levenshtein_distance(x.c_str(), y.c_str()), plain_distance(x, y));
    }
}

}  // namespace
