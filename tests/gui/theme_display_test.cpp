#include "gui/theme.h"

#include <FL/Fl.H>
#include <FL/Fl_Button.H>
#include <FL/Fl_Double_Window.H>
#include <FL/Fl_Image_Surface.H>
#include <FL/Fl_RGB_Image.H>
#include <FL/fl_draw.H>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <ostream>

// The boxes are drawn to a picture in memory, and single points of it are looked at. Colours are
// worked out by hand from what the borders are: an average of black and the box's colour, in which
// the latter has the rest of 1.

namespace {

struct Point {
    int red, green, blue;
};

// The toolkit cuts fractions off at each average, so that a value may be one or two less.
bool operator==(const Point &a, const Point &b) {
    return std::abs(a.red - b.red) <= 2 && std::abs(a.green - b.green) <= 2 &&
           std::abs(a.blue - b.blue) <= 2;
}
std::ostream &operator<<(std::ostream &out, const Point &p) {
    return out << "(" << p.red << ", " << p.green << ", " << p.blue << ")";
}

Point colour_of(Fl_Color c) {
    uchar red, green, blue;
    Fl::get_color(c, red, green, blue);
    return {red, green, blue};
}

class Picture {
 public:
    explicit Picture(const std::function<void()> &draw) : Picture([&draw](auto &) { draw(); }, 0) {}
    explicit Picture(Fl_Widget &widget)
        : Picture([&widget](Fl_Image_Surface &s) { s.draw(&widget, widget.x(), widget.y()); }, 0) {}

    Point at(int x, int y) const {
        const auto *bytes = reinterpret_cast<const uchar *>(image_->data()[0]);
        const int line = image_->ld() ? image_->ld() : image_->w() * image_->d();
        const uchar *p = bytes + y * line + x * image_->d();
        return {p[0], p[1], p[2]};
    }

 private:
    Picture(const std::function<void(Fl_Image_Surface &)> &draw, int) {
        Fl_Image_Surface surface(width, height);
        Fl_Surface_Device::push_current(&surface);
        fl_color(fl_rgb_color(255, 255, 255));
        fl_rectf(0, 0, width, height);
        draw(surface);
        image_.reset(surface.image());
        Fl_Surface_Device::pop_current();
    }
    static constexpr int width = 120, height = 80;
    std::unique_ptr<Fl_RGB_Image> image_;
};

const Point white{255, 255, 255};

// A colour, with its borders: 0.88, 0.67 and the mean of both, 0.775, of it.
const Point colour{200, 100, 50};
const Point light{176, 88, 44};
const Point dark{134, 67, 33};
const Point mid{155, 77, 38};

constexpr int x = 20, y = 10, w = 60, h = 24;
constexpr int middle = x + w / 2;

Picture box(Fl_Boxtype type, int height = h) {
    return Picture([=] { fl_draw_box(type, x, y, w, height, fl_rgb_color(200, 100, 50)); });
}

class Theme : public testing::Test {
 protected:
    static void SetUpTestSuite() {
        init_theme();
    }
};

}  // namespace

TEST_F(Theme, SetsTheColoursTheFontSizeAndTheScheme) {
    EXPECT_EQ(FL_NORMAL_SIZE, 13);
    EXPECT_STREQ(Fl::scheme(), "gtk+");
    EXPECT_EQ(colour_of(FL_FOREGROUND_COLOR), (Point{46, 52, 54}));
    EXPECT_EQ(colour_of(FL_BACKGROUND_COLOR), (Point{246, 245, 244}));
    EXPECT_EQ(colour_of(FL_SELECTION_COLOR), (Point{53, 132, 228}));
    // Of the mean of white and the background, (250, 250, 249).
    EXPECT_EQ(colour_of(FL_LIGHT3), (Point{220, 220, 219}));
    EXPECT_EQ(colour_of(FL_DARK3), (Point{167, 167, 166}));
}

TEST_F(Theme, ReplacesTheToolkitsBoxTypes) {
    const auto of = [](int type) { return Fl::get_boxtype(static_cast<Fl_Boxtype>(type)); };
    EXPECT_EQ(of(FL_UP_FRAME), of(88));
    EXPECT_EQ(of(FL_THIN_UP_FRAME), of(90));
    EXPECT_EQ(of(FL_THIN_DOWN_FRAME), of(91));
    EXPECT_EQ(of(FL_UP_BOX), of(92));
    EXPECT_EQ(of(FL_DOWN_BOX), of(93));
    EXPECT_EQ(of(FL_THIN_UP_BOX), of(94));
    EXPECT_EQ(of(FL_THIN_DOWN_BOX), of(95));
    EXPECT_EQ(of(_FL_ROUND_UP_BOX), of(96));
    EXPECT_EQ(of(_FL_ROUND_DOWN_BOX), of(97));
    for (int type = 88; type <= 97; type++) {
        for (int other = type + 1; other <= 97; other++) {
            // Up and down frames are registered twice.
            EXPECT_EQ(of(type) == of(other), other == type + 2 && other <= 91)
                << type << " " << other;
        }
    }
}

TEST_F(Theme, DrawsTheDownFrameAsTheUpFrame) {
    EXPECT_EQ(Fl::get_boxtype(FL_DOWN_FRAME), Fl::get_boxtype(static_cast<Fl_Boxtype>(88)));
    EXPECT_NE(Fl::get_boxtype(FL_DOWN_FRAME), Fl::get_boxtype(static_cast<Fl_Boxtype>(89)));
    const Picture picture = box(FL_DOWN_FRAME);
    EXPECT_EQ(picture.at(middle, y), light);
    EXPECT_EQ(picture.at(middle, y + h - 1), dark);
}

TEST_F(Theme, KeepsTwoPointsOnEachSideFree) {
    for (int type = 88; type <= 97; type++) {
        const auto t = static_cast<Fl_Boxtype>(type);
        EXPECT_EQ(Fl::box_dx(t), 2);
        EXPECT_EQ(Fl::box_dy(t), 2);
        EXPECT_EQ(Fl::box_dw(t), 4);
        EXPECT_EQ(Fl::box_dh(t), 4);
    }
}

TEST_F(Theme, LightsAFrameThatIsUpFromAbove) {
    const Picture picture = box(FL_UP_FRAME);
    EXPECT_EQ(picture.at(middle, y), light);
    EXPECT_EQ(picture.at(x + 4, y), light);
    EXPECT_EQ(picture.at(x + w - 5, y), light);
    EXPECT_EQ(picture.at(x, y + h / 2), light);
    EXPECT_EQ(picture.at(x + w - 1, y + h / 2), light);
    EXPECT_EQ(picture.at(middle, y + h - 1), dark);
    EXPECT_EQ(picture.at(middle, y + h / 2), white) << "a frame isn't filled";
    for (const int corner_x : {x, x + w - 1}) {
        for (const int corner_y : {y, y + h - 1}) {
            EXPECT_EQ(picture.at(corner_x, corner_y), white) << "the corners are round";
        }
    }
    EXPECT_EQ(picture.at(x + 1, y + 1), light) << "upper corners";
    EXPECT_EQ(picture.at(x + 1, y + h - 2), mid) << "lower corners";
    EXPECT_EQ(picture.at(x + w - 2, y + h - 2), mid) << "lower corners";
}

TEST_F(Theme, DarkensAFrameThatIsDownFromAbove) {
    const Picture picture = box(FL_THIN_DOWN_FRAME);
    EXPECT_EQ(picture.at(middle, y), dark);
    EXPECT_EQ(picture.at(x, y + h / 2), light);
    EXPECT_EQ(picture.at(x + w - 1, y + h / 2), light);
    EXPECT_EQ(picture.at(middle, y + h - 1), light);
    EXPECT_EQ(picture.at(x + 1, y + 1), mid) << "upper corners";
    EXPECT_EQ(picture.at(x + w - 2, y + 1), mid) << "upper corners";
    EXPECT_EQ(picture.at(x + 1, y + h - 2), light) << "lower corners";
}

TEST_F(Theme, FillsAnUpBoxWithThreeQuartersOfWhite) {
    const Picture picture = box(FL_UP_BOX);
    const Point fill{241, 216, 203};
    EXPECT_EQ(picture.at(middle, y + 1), fill);
    EXPECT_EQ(picture.at(middle, y + h / 2), fill);
    EXPECT_EQ(picture.at(x + 1, y + h / 2), fill);
    EXPECT_EQ(picture.at(middle, y + h - 2), fill) << "no gradient";
    EXPECT_EQ(picture.at(middle, y), light);
    EXPECT_EQ(picture.at(middle, y + h - 1), dark);
    EXPECT_EQ(picture.at(x, y), white);
}

TEST_F(Theme, FillsTheOtherBoxesWithTheirColour) {
    for (const Fl_Boxtype type : {FL_DOWN_BOX, FL_THIN_UP_BOX, FL_THIN_DOWN_BOX}) {
        const Picture picture = box(type);
        const bool up = type == FL_THIN_UP_BOX;
        EXPECT_EQ(picture.at(middle, y + 1), colour);
        EXPECT_EQ(picture.at(middle, y + h / 2), colour);
        EXPECT_EQ(picture.at(middle, y + h - 2), colour);
        EXPECT_EQ(picture.at(middle, y), up ? light : dark);
        EXPECT_EQ(picture.at(middle, y + h - 1), up ? dark : light);
        EXPECT_EQ(picture.at(x - 1, y + h / 2), white);
        EXPECT_EQ(picture.at(x + w, y + h / 2), white);
        EXPECT_EQ(picture.at(middle, y - 1), white);
        EXPECT_EQ(picture.at(middle, y + h), white);
    }
}

// In a frame that is down the upper edge is darker than the corners beside it, which shows where it
// begins.
TEST_F(Theme, RoundsALowBoxByHalfItsHeight) {
    const Picture low = box(FL_THIN_DOWN_FRAME, 5);
    EXPECT_EQ(low.at(x + 2, y), dark);
    EXPECT_EQ(low.at(x + w - 3, y), dark);
    const Picture high = box(FL_THIN_DOWN_FRAME);
    EXPECT_EQ(high.at(x + 4, y), dark);
    EXPECT_EQ(high.at(x + 3, y), mid);
}

TEST_F(Theme, FillsABoxOfTwiceTheRadius) {
    const Picture picture = box(FL_DOWN_BOX, 8);
    EXPECT_EQ(picture.at(middle, y), dark);
    for (int line = y + 1; line < y + 7; line++) {
        EXPECT_EQ(picture.at(middle, line), colour) << line;
    }
    EXPECT_EQ(picture.at(middle, y + 7), light);
    EXPECT_EQ(picture.at(middle, y + 8), white);
}

TEST_F(Theme, DrawsBoxesTooSmallForACorner) {
    for (const Fl_Boxtype type : {FL_UP_BOX, FL_DOWN_BOX, FL_THIN_UP_BOX, FL_UP_FRAME}) {
        for (int height = 0; height < 3; height++) {
            const Picture picture = box(type, height);
            EXPECT_EQ(picture.at(middle, y + 4), white);
        }
    }
}

TEST_F(Theme, DrawsRoundBoxesWithTheirShadowOnTheRightSide) {
    constexpr int size = 40;
    const auto round = [](Fl_Boxtype type) {
        return Picture([type] { fl_draw_box(type, x, y, size, size, fl_rgb_color(200, 100, 50)); });
    };
    const auto edge = [](const Picture &picture, bool top) {
        return picture.at(x + size / 2, top ? y : y + size - 1);
    };
    const Picture up = round(_FL_ROUND_UP_BOX);
    EXPECT_EQ(up.at(x + size / 2, y + size / 2), colour);
    EXPECT_EQ(up.at(x, y), white);
    EXPECT_EQ(edge(up, true), light);
    EXPECT_EQ(edge(up, false), mid) << "the mid border covers the quarter at the bottom";
    const Picture down = round(_FL_ROUND_DOWN_BOX);
    EXPECT_EQ(down.at(x + size / 2, y + size / 2), colour);
    EXPECT_EQ(edge(down, true), dark) << "the dark border covers the quarter at the top";
    EXPECT_EQ(edge(down, false), light);
}

TEST_F(Theme, GreysInactiveButtons) {
    Fl_Group::current(nullptr);
    Fl_Button button(x, y, w, h);
    button.color(fl_rgb_color(200, 100, 50));
    EXPECT_EQ(Picture(button).at(middle, y + h / 2), (Point{241, 216, 203}));
    button.deactivate();
    // A third of the colour and two of the grey of the background.
    const Point grey = colour_of(FL_GRAY);
    const auto greyed = [&grey](const Point &p) {
        return Point{(p.red * 33 + grey.red * 67) / 100, (p.green * 33 + grey.green * 67) / 100,
                     (p.blue * 33 + grey.blue * 67) / 100};
    };
    const Picture inactive(button);
    for (const int line : {y + 1, y + h / 2, y + h - 2}) {
        EXPECT_EQ(inactive.at(middle, line), greyed({241, 216, 203})) << line;
    }
    EXPECT_EQ(inactive.at(middle, y), greyed(light));
    EXPECT_EQ(inactive.at(middle, y + h - 1), greyed(dark));
}

// The first show with a command line makes the toolkit load its scheme again.
TEST_F(Theme, OutlivesTheFirstWindow) {
    char name[] = "program";
    char *arguments[] = {name, nullptr};
    const auto up = Fl::get_boxtype(FL_UP_BOX);
    Fl_Double_Window window(100, 50);
    window.end();
    window.show(1, arguments);
    Fl::check();
    EXPECT_EQ(Fl::get_boxtype(FL_UP_BOX), up);
    EXPECT_EQ(Fl::get_boxtype(FL_UP_BOX), Fl::get_boxtype(static_cast<Fl_Boxtype>(92)));
    EXPECT_EQ(Fl::get_boxtype(_FL_ROUND_DOWN_BOX), Fl::get_boxtype(static_cast<Fl_Boxtype>(97)));
    EXPECT_EQ(Fl::get_boxtype(FL_DOWN_FRAME), Fl::get_boxtype(static_cast<Fl_Boxtype>(88)));
    EXPECT_EQ(colour_of(FL_BACKGROUND_COLOR), (Point{246, 245, 244}));
}
