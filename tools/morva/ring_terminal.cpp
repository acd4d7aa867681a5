// Plots of rings on a terminal, in characters of two by four dots.
#include <algorithm>
#include <cmath>

#include "output.hpp"
#include "ring_commands.hpp"
#include "ring_plot.hpp"

namespace tool {

namespace {

constexpr int kRows = 6;    // of characters in a panel
constexpr int kMargin = 9;  // for the values left of it

class Dots {
  public:
    Dots(int columns, int rows)
        : columns_(columns), rows_(rows), cells_(static_cast<std::size_t>(columns * rows)) {}

    int width() const { return 2 * columns_; }
    int height() const { return 4 * rows_; }

    void set(int x, int y) {
        if (x < 0 || x >= width() || y < 0 || y >= height()) return;
        static constexpr unsigned char kBits[4][2] = {{1, 8}, {2, 16}, {4, 32}, {64, 128}};
        cell(x / 2, y / 4) |= kBits[y % 4][x % 2];
    }
    void line(int x1, int y1, int x2, int y2) {
        const int steps = std::max({std::abs(x2 - x1), std::abs(y2 - y1), 1});
        for (int i = 0; i <= steps; ++i)
            set(x1 + (x2 - x1) * i / steps, y1 + (y2 - y1) * i / steps);
    }
    std::string row(int row) const {
        std::string text;
        for (int column = 0; column < columns_; ++column) {
            const unsigned bits = cells_[static_cast<std::size_t>(row * columns_ + column)];
            const unsigned code = 0x2800 + bits;  // Braille patterns
            text += static_cast<char>(0xe0 | code >> 12);
            text += static_cast<char>(0x80 | (code >> 6 & 0x3f));
            text += static_cast<char>(0x80 | (code & 0x3f));
        }
        return text;
    }

  private:
    unsigned char& cell(int column, int row) {
        return cells_[static_cast<std::size_t>(row * columns_ + column)];
    }
    int columns_, rows_;
    std::vector<unsigned char> cells_;
};

// The values of ticks beside their rows.
std::vector<std::string> labels_of(const Panel& panel) {
    std::vector<std::string> labels(kRows, std::string(kMargin, ' '));
    if (panel.empty()) return labels;
    for (const Tick& tick : value_ticks(panel.low, panel.high, kRows / 2)) {
        const double part = (panel.high - tick.at) / (panel.high - panel.low);
        const auto row = static_cast<std::size_t>(std::clamp(part, 0.0, 0.999) * kRows);
        char text[32];
        std::snprintf(text, sizeof text, "%*s ", kMargin - 1, tick.text.c_str());
        labels[row] = text;
    }
    return labels;
}

void draw_panel(const Plot& plot, const Panel& panel, int columns) {
    Dots dots(columns, kRows);
    const auto x = [&](double time) {
        return static_cast<int>((time - plot.from) / (plot.to - plot.from) * (dots.width() - 1));
    };
    const auto y = [&](double value) {
        return static_cast<int>((panel.high - value) / (panel.high - panel.low) *
                                (dots.height() - 1));
    };
    for (const Piece& piece : panel.pieces) {
        const Ring_point* last = &piece.front();
        for (const Ring_point& point : piece) {
            dots.line(x(last->time), y(last->value), x(point.time), y(point.value));
            last = &point;
        }
    }
    std::string title = coloured(Colour::bold, one_line(panel.title));
    title += panel.empty() ? "  no data" : "  " + number_text(panel.newest().value);
    print(std::string(kMargin, ' ') + title + "\n");
    const std::vector<std::string> labels = labels_of(panel);
    for (int row = 0; row < kRows; ++row)
        print(labels[static_cast<std::size_t>(row)] + coloured(Colour::green, dots.row(row)) +
              "\n");
}

// The texts of the ticks under their places, as far as there is room.
void draw_axis(const Plot& plot, int columns) {
    const auto size = static_cast<std::size_t>(kMargin + columns);
    std::string marks(size, ' '), texts(size, ' '), days(size, ' ');
    std::size_t free_from = 0;
    for (const Tick& tick : time_ticks(plot.from, plot.to, columns / 10)) {
        const auto at = static_cast<std::size_t>(
            kMargin + (tick.at - plot.from) / (plot.to - plot.from) * (columns - 1));
        marks[std::min(at, size - 1)] = '|';
        const std::size_t start = at - std::min(at, tick.text.size() / 2);
        if (start < free_from || start + std::max(tick.text.size(), tick.day.size()) > size)
            continue;
        texts.replace(start, tick.text.size(), tick.text);
        days.replace(start, tick.day.size(), tick.day);
        free_from = start + tick.text.size() + 1;
    }
    for (std::string* line : {&marks, &texts, &days}) {
        line->erase(line->find_last_not_of(' ') + 1);
        print(coloured(Colour::cyan, *line) + "\n");
    }
}

}  // namespace

void draw_on_terminal(const Plot& plot, int columns) {
    for (const Panel& panel : plot.panels) draw_panel(plot, panel, columns - kMargin);
    draw_axis(plot, columns - kMargin);
}

}  // namespace tool
