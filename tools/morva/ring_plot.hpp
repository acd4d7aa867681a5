// What a plot of rings shows, apart from where it is drawn: one panel a ring, below each other,
// over one time axis.
#pragma once

#include <string>
#include <vector>

#include "morva.h"

namespace tool {

using Piece = std::vector<Ring_point>;  // oldest first

struct Tick {
    double at;
    std::string text;
    std::string day = {};  // below the text, where another day begins
};

struct Panel {
    std::string file;
    std::string title;
    std::vector<Piece> pieces;  // what lies between breaks
    double low = 0;             // the value axis
    double high = 1;
    std::vector<Tick> ticks;
    bool empty() const { return pieces.empty(); }
    const Ring_point& newest() const { return pieces.back().back(); }
};

struct Plot {
    double from = 0;
    double to = 1;
    std::vector<Panel> panels;
};

// The ticks of a time axis, some `count` of them.
std::vector<Tick> time_ticks(double from, double to, int count);

// The ticks of a value axis, some `count`, at steps of 1, 2 or 5 times a power of ten.
std::vector<Tick> value_ticks(double low, double high, int count);

// At most some four points for each of `columns` of equal width: its first and last and its
// extremes.
Piece thinned(const Piece& piece, double from, double to, int columns);

// Draws to a file, by its suffix .png or .svg. False, with a complaint, when it cannot be written.
bool draw_picture(const Plot& plot, const std::string& path, int width, int panel_height);

// Prints the plot for a terminal of so many columns.
void draw_on_terminal(const Plot& plot, int columns);

}  // namespace tool
