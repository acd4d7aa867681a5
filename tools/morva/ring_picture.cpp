// Plots of rings as pictures: cairo draws the same to pixels and to SVG.
#include <cairo-svg.h>
#include <cairo.h>

#include <cmath>
#include <memory>

#include "output.hpp"
#include "ring_commands.hpp"
#include "ring_plot.hpp"

namespace tool {

namespace {

struct Rgb {
    double red, green, blue;
};
constexpr Rgb kPaper = {1, 1, 1}, kInk = {0.13, 0.15, 0.18}, kFaint = {0.45, 0.48, 0.52},
              kGrid = {0.90, 0.91, 0.93}, kFrame = {0.72, 0.74, 0.77}, kBreak = {0.965, 0.95, 0.92};
// Told apart also by those who do not see red and green as others do: Okabe and Ito's colours.
constexpr Rgb kTraces[] = {{0.0, 0.447, 0.698}, {0.835, 0.369, 0.0},   {0.0, 0.62, 0.451},
                           {0.8, 0.475, 0.655}, {0.337, 0.706, 0.914}, {0.902, 0.624, 0.0}};
constexpr double kLeft = 72, kRight = 20, kTop = 14, kBottom = 48, kTitle = 24, kBetween = 10;
constexpr double kSmall = 11, kNormal = 13;

struct Free {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, Free>;
using Context = std::unique_ptr<cairo_t, Free>;

struct Box {
    double left, top, width, height;
    double bottom() const { return top + height; }
    double right() const { return left + width; }
};

// On the middle of a pixel, where a thin line is sharp.
double sharp(double at) {
    return std::floor(at) + 0.5;
}

class Picture {
  public:
    Picture(cairo_t* context, const Plot& plot, double width, double panel_height)
        : c_(context), plot_(plot), width_(width), panel_height_(panel_height) {}

    static double height_for(std::size_t panels, double panel_height) {
        return kTop + static_cast<double>(panels) * (kTitle + panel_height + kBetween) + kBottom;
    }

    void draw() {
        colour(kPaper);
        cairo_paint(c_);
        cairo_select_font_face(c_, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        const auto ticks = time_ticks(plot_.from, plot_.to, static_cast<int>(inner_width() / 110));
        double top = kTop;
        for (std::size_t i = 0; i < plot_.panels.size(); ++i) {
            const Box box = {kLeft, top + kTitle, inner_width(), panel_height_};
            panel(plot_.panels[i], box, ticks, kTraces[i % std::size(kTraces)]);
            top += kTitle + panel_height_ + kBetween;
        }
        time_axis(ticks, top - kBetween);
    }

  private:
    double inner_width() const { return width_ - kLeft - kRight; }
    double x(double time) const {
        return kLeft + (time - plot_.from) / (plot_.to - plot_.from) * inner_width();
    }
    static double y(const Panel& panel, const Box& box, double value) {
        return box.bottom() - (value - panel.low) / (panel.high - panel.low) * box.height;
    }

    void colour(const Rgb& rgb) { cairo_set_source_rgb(c_, rgb.red, rgb.green, rgb.blue); }
    void line(double x1, double y1, double x2, double y2) {
        cairo_move_to(c_, x1, y1);
        cairo_line_to(c_, x2, y2);
        cairo_stroke(c_);
    }
    // `anchor`: the part of the text's width that lies left of `at`.
    void text(double at, double base, const std::string& words, double anchor, double size,
              const Rgb& rgb) {
        cairo_text_extents_t extents;
        cairo_set_font_size(c_, size);
        cairo_text_extents(c_, words.c_str(), &extents);
        colour(rgb);
        cairo_move_to(c_, at - anchor * extents.x_advance, base);
        cairo_show_text(c_, words.c_str());
    }
    double text_width(const std::string& words, double size) {
        cairo_text_extents_t extents;
        cairo_set_font_size(c_, size);
        cairo_text_extents(c_, words.c_str(), &extents);
        return extents.x_advance;
    }

    void panel(const Panel& panel, const Box& box, const std::vector<Tick>& ticks,
               const Rgb& trace) {
        breaks(panel, box);
        grid(panel, box, ticks);
        title(panel, box, trace);
        cairo_save(c_);
        cairo_rectangle(c_, box.left, box.top, box.width, box.height);
        cairo_clip(c_);
        colour(trace);
        cairo_set_line_width(c_, 1.4);
        cairo_set_line_join(c_, CAIRO_LINE_JOIN_ROUND);
        for (const Piece& piece : panel.pieces) curve(panel, box, piece);
        cairo_restore(c_);
        colour(kFrame);
        cairo_set_line_width(c_, 1);
        cairo_rectangle(c_, sharp(box.left), sharp(box.top), std::floor(box.width),
                        std::floor(box.height));
        cairo_stroke(c_);
        if (panel.empty())
            text(box.left + box.width / 2, box.top + box.height / 2, "no data", 0.5, kNormal,
                 kFaint);
    }

    // What lies between two pieces is shaded.
    void breaks(const Panel& panel, const Box& box) {
        colour(kBreak);
        for (std::size_t i = 1; i < panel.pieces.size(); ++i) {
            const double begin = x(panel.pieces[i - 1].back().time);
            const double end = x(panel.pieces[i].front().time);
            cairo_rectangle(c_, begin, box.top, end - begin, box.height);
            cairo_fill(c_);
        }
    }

    void grid(const Panel& panel, const Box& box, const std::vector<Tick>& ticks) {
        cairo_set_line_width(c_, 1);
        for (const Tick& tick : ticks) {
            colour(kGrid);
            line(sharp(x(tick.at)), box.top, sharp(x(tick.at)), box.bottom());
        }
        for (const Tick& tick : panel.ticks) {
            const double at = sharp(y(panel, box, tick.at));
            colour(kGrid);
            line(box.left, at, box.right(), at);
            text(box.left - 8, at + 4, tick.text, 1, kSmall, kFaint);
        }
    }

    void title(const Panel& panel, const Box& box, const Rgb& trace) {
        const double base = box.top - 8;
        colour(trace);
        cairo_rectangle(c_, box.left, base - 9, 10, 10);
        cairo_fill(c_);
        text(box.left + 16, base, shortened(plain_utf8(panel.title), box.width - 120), 0, kNormal,
             kInk);
        if (!panel.empty())
            text(box.right(), base, number_of(panel.newest().value), 1, kNormal, kInk);
    }

    static std::string number_of(double value) {
        char words[32];
        std::snprintf(words, sizeof words, "%.6g", value);
        return words;
    }

    std::string shortened(std::string words, double room) {
        if (text_width(words, kNormal) <= room) return words;
        do {
            while (!words.empty() && (words.back() & 0xc0) == 0x80) words.pop_back();
            if (!words.empty()) words.pop_back();
        } while (!words.empty() && text_width(words + "...", kNormal) > room);
        return words + "...";
    }

    void curve(const Panel& panel, const Box& box, const Piece& piece) {
        const Piece thin = thinned(piece, plot_.from, plot_.to, static_cast<int>(box.width));
        if (thin.size() == 1) {
            cairo_arc(c_, x(thin[0].time), y(panel, box, thin[0].value), 2, 0, 2 * M_PI);
            cairo_fill(c_);
            return;
        }
        for (const Ring_point& point : thin)
            cairo_line_to(c_, x(point.time), y(panel, box, point.value));
        cairo_stroke(c_);
    }

    void time_axis(const std::vector<Tick>& ticks, double top) {
        cairo_set_line_width(c_, 1);
        double free_from = 0;
        for (const Tick& tick : ticks) {
            const double at = sharp(x(tick.at)), half = text_width(tick.text, kSmall) / 2;
            colour(kFrame);
            line(at, top, at, top + 4);
            if (at - half < free_from || at + half > width_) continue;
            text(at, top + 17, tick.text, 0.5, kSmall, kFaint);
            if (!tick.day.empty()) text(at, top + 32, tick.day, 0.5, kSmall, kInk);
            free_from = at + half + 8;
        }
        text(width_ - kRight, top + 32, "UTC", 1, kSmall, kFaint);
    }

    cairo_t* c_;
    const Plot& plot_;
    double width_;
    double panel_height_;
};

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

bool draw_picture(const Plot& plot, const std::string& path, int width, int panel_height) {
    const bool svg = ends_with(path, ".svg");
    if (!svg && !ends_with(path, ".png")) {
        elog_complain(0, "a picture's name ends with .png or .svg: %s", path.c_str());
        return false;
    }
    const double height = std::ceil(Picture::height_for(plot.panels.size(), panel_height));
    const Surface surface(
        svg ? cairo_svg_surface_create(path.c_str(), width, height)
            : cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, static_cast<int>(height)));
    const Context context(cairo_create(surface.get()));
    Picture(context.get(), plot, width, panel_height).draw();
    cairo_status_t status = cairo_status(context.get());
    if (status == CAIRO_STATUS_SUCCESS && !svg)
        status = cairo_surface_write_to_png(surface.get(), path.c_str());
    cairo_surface_finish(surface.get());
    if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_status(surface.get());
    if (status == CAIRO_STATUS_SUCCESS) return true;
    elog_complain(0, "can't draw to %s: %s", path.c_str(), cairo_status_to_string(status));
    return false;
}

}  // namespace tool
