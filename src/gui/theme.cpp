#include "gui/theme.h"

#include <FL/Enumerations.H>
#include <FL/Fl.H>
#include <FL/fl_draw.H>

#include <algorithm>

namespace {

constexpr int RADIUS = 4;

Fl_Color light_border(Fl_Color c) {
    return fl_color_average(FL_BLACK, c, 0.12F);
}

Fl_Color dark_border(Fl_Color c) {
    return fl_color_average(FL_BLACK, c, 0.33F);
}

Fl_Color mid_border(Fl_Color c) {
    return fl_color_average(light_border(c), dark_border(c), 0.5F);
}

// A border of one pixel with rounded corners. The light comes from above: what is up is lightest on
// top, what is down is darkest there, and the corners between the edges have the tone between.
void theme_round_frame(bool up, int x, int y, int w, int h, int r, Fl_Color c) {
    r = std::min(r, h / 2);
    const int d = 2 * r;

    Fl::set_box_color(up ? light_border(c) : dark_border(c));
    fl_xyline(x + r, y, x + w - r - 1);

    if (!up) {
        Fl::set_box_color(mid_border(c));
    }
    fl_arc(x, y, d, d, 90, 180);
    fl_arc(x + w - d, y, d, d, 0, 90);

    Fl::set_box_color(light_border(c));
    fl_yxline(x, y + r, y + h - r - 1);
    fl_yxline(x + w - 1, y + r, y + h - r - 1);

    if (up) {
        Fl::set_box_color(mid_border(c));
    }
    fl_arc(x, y + h - d, d, d, 180, 270);
    fl_arc(x + w - d, y + h - d, d, d, 270, 360);

    Fl::set_box_color(up ? dark_border(c) : light_border(c));
    fl_xyline(x + r, y + h - 1, x + w - r - 1);
}

constexpr auto same_as_top = static_cast<Fl_Color>(-1);

// A rectangle with rounded corners, filled from the colour at its top to the one at its bottom.
void theme_round_rect(int x, int y, int w, int h, int r, Fl_Color top, Fl_Color bottom) {
    r = std::min(r, h / 2);
    if (bottom == same_as_top) {
        bottom = top;
    }
    const int d = 2 * r;

    Fl::set_box_color(top);
    fl_pie(x, y, d, d, 90, 180);
    fl_rectf(x + r, y, w - d, r);
    fl_pie(x + w - d, y, d, d, 0, 90);

    const int steps = h - d;
    for (int i = 0; i < steps; i++) {
        const double share = static_cast<double>(i) / steps;
        Fl::set_box_color(fl_color_average(bottom, top, static_cast<float>(share)));
        fl_xyline(x, y + r + i, x + w - 1);
    }

    Fl::set_box_color(bottom);
    fl_pie(x, y + h - d, d, d, 180, 270);
    fl_rectf(x + r, y + h - r, w - d, r);
    fl_pie(x + w - d, y + h - d, d, d, 270, 360);
}

void theme_up_frame(int x, int y, int w, int h, Fl_Color c) {
    theme_round_frame(true, x, y, w, h, RADIUS, c);
}

void theme_down_frame(int x, int y, int w, int h, Fl_Color c) {
    theme_round_frame(false, x, y, w, h, RADIUS, c);
}

void theme_up_box(int x, int y, int w, int h, Fl_Color c) {
    theme_round_rect(x, y, w, h, RADIUS, fl_color_average(FL_WHITE, c, 0.75F), same_as_top);
    theme_up_frame(x, y, w, h, c);
}

void theme_down_box(int x, int y, int w, int h, Fl_Color c) {
    theme_round_rect(x, y, w, h, RADIUS, c, same_as_top);
    theme_down_frame(x, y, w, h, c);
}

void theme_thin_up_box(int x, int y, int w, int h, Fl_Color c) {
    theme_round_rect(x, y, w, h, RADIUS, c, same_as_top);
    theme_up_frame(x, y, w, h, c);
}

void theme_thin_down_box(int x, int y, int w, int h, Fl_Color c) {
    theme_round_rect(x, y, w, h, RADIUS, c, same_as_top);
    theme_down_frame(x, y, w, h, c);
}

void theme_round_up_box(int x, int y, int w, int h, Fl_Color c) {
    Fl::set_box_color(c);
    fl_pie(x, y, w, h, 0, 360);
    Fl::set_box_color(light_border(c));
    fl_arc(x, y, w, h, 0, 180);
    Fl::set_box_color(dark_border(c));
    fl_arc(x, y, w, h, 180, 360);
    Fl::set_box_color(mid_border(c));
    fl_arc(x, y, w, h, 225, 315);
}

void theme_round_down_box(int x, int y, int w, int h, Fl_Color c) {
    Fl::set_box_color(c);
    fl_pie(x, y, w, h, 0, 360);
    Fl::set_box_color(mid_border(c));
    fl_arc(x, y, w, h, 0, 180);
    Fl::set_box_color(dark_border(c));
    fl_arc(x, y, w, h, 45, 135);
    Fl::set_box_color(light_border(c));
    fl_arc(x, y, w, h, 180, 360);
}

void set_colours() {
    FL_NORMAL_SIZE = 13;
    Fl::foreground(46, 52, 54);
    Fl::background(246, 245, 244);
    Fl::set_color(FL_SELECTION_COLOR, 53, 132, 228);
    const Fl_Color m = fl_color_average(FL_WHITE, FL_BACKGROUND_COLOR, 0.5F);
    Fl::set_color(FL_LIGHT3, light_border(m));
    Fl::set_color(FL_DARK3, dark_border(m));
}

void register_box_types() {
    struct {
        int number;
        Fl_Box_Draw_F *draw;
    } const types[] = {
        {88, theme_up_frame},       {89, theme_down_frame},    {90, theme_up_frame},
        {91, theme_down_frame},     {92, theme_up_box},        {93, theme_down_box},
        {94, theme_thin_up_box},    {95, theme_thin_down_box}, {96, theme_round_up_box},
        {97, theme_round_down_box},
    };
    for (const auto &type : types) {
        Fl::set_boxtype(static_cast<Fl_Boxtype>(type.number), type.draw, 2, 2, 4, 4);
    }
}

// The toolkit loads its scheme again when the first window is shown: it then copies the scheme's
// own types over its standard ones, so that ours have to stand in both places.
void replace_box_types() {
    struct {
        Fl_Boxtype standard, of_scheme;
        int ours;
    } const types[] = {
        {FL_UP_FRAME, FL_GTK_UP_FRAME, 88},
        {FL_DOWN_FRAME, FL_GTK_DOWN_FRAME, 88},  // not 89: nothing is drawn through that
        {FL_THIN_UP_FRAME, FL_GTK_THIN_UP_FRAME, 90},
        {FL_THIN_DOWN_FRAME, FL_GTK_THIN_DOWN_FRAME, 91},
        {FL_UP_BOX, FL_GTK_UP_BOX, 92},
        {FL_DOWN_BOX, FL_GTK_DOWN_BOX, 93},
        {FL_THIN_UP_BOX, FL_GTK_THIN_UP_BOX, 94},
        {FL_THIN_DOWN_BOX, FL_GTK_THIN_DOWN_BOX, 95},
        {_FL_ROUND_UP_BOX, FL_GTK_ROUND_UP_BOX, 96},
        {_FL_ROUND_DOWN_BOX, FL_GTK_ROUND_DOWN_BOX, 97},
    };
    for (const auto &type : types) {
        const auto ours = static_cast<Fl_Boxtype>(type.ours);
        Fl::set_boxtype(type.standard, ours);
        Fl::set_boxtype(type.of_scheme, ours);
    }
}

}  // namespace

void init_theme() {
    set_colours();
    Fl::scheme("gtk+");
    register_box_types();
    replace_box_types();
}
