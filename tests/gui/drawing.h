// Pictures of what the toolkit draws, made in memory. Needs a display, but shows nothing on it.
#pragma once

#include <FL/Fl.H>
#include <FL/Fl_Image_Surface.H>
#include <FL/Fl_PNG_Image.H>
#include <FL/Fl_Widget.H>
#include <FL/fl_draw.H>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

struct Pixel {
    int red, green, blue;
    bool operator==(const Pixel &) const = default;
};
inline Pixel pixel_of(Fl_Color color) {
    unsigned char red = 0;
    unsigned char green = 0;
    unsigned char blue = 0;
    Fl::get_color(color, red, green, blue);
    return {red, green, blue};
}

struct Box {
    int x, y, w, h;
};

class Picture {
 public:
    // What the code draws, on a ground of one colour.
    Picture(int w, int h, const std::function<void(Fl_Image_Surface &)> &code,
            Fl_Color ground = FL_GRAY)
        : w_(w), h_(h) {
        Fl_Image_Surface surface(w, h);
        Fl_Surface_Device::push_current(&surface);
        fl_color(ground);
        fl_rectf(0, 0, w, h);
        code(surface);
        image_.reset(surface.image());
        Fl_Surface_Device::pop_current();
    }
    // A widget at its own place.
    static Picture of(Fl_Widget &widget, int w, int h) {
        return {w, h,
                [&](Fl_Image_Surface &surface) { surface.draw(&widget, widget.x(), widget.y()); }};
    }

    Pixel at(int x, int y) const {
        const auto *const bytes = reinterpret_cast<const unsigned char *>(image_->data()[0]);
        const int line = image_->ld() ? image_->ld() : image_->w() * image_->d();
        const unsigned char *const pixel = bytes + y * line + x * image_->d();
        return {pixel[0], pixel[1], pixel[2]};
    }
    int count(const Box &box, const std::function<bool(const Pixel &)> &wanted) const {
        int found = 0;
        for (int y = box.y; y < box.y + box.h; ++y) {
            for (int x = box.x; x < box.x + box.w; ++x) {
                found += wanted(at(x, y)) ? 1 : 0;
            }
        }
        return found;
    }
    int count(const Box &box, const Pixel &wanted) const {
        return count(box, [&](const Pixel &pixel) { return pixel == wanted; });
    }
    // The smallest box around all pixels within `box` that aren't of this colour; its width is 0
    // when there are none.
    Box inked(const Box &box, const Pixel &ground) const {
        int left = box.x + box.w;
        int right = box.x - 1;
        int top = box.y + box.h;
        int bottom = box.y - 1;
        for (int y = box.y; y < box.y + box.h; ++y) {
            for (int x = box.x; x < box.x + box.w; ++x) {
                if (!(at(x, y) == ground)) {
                    left = std::min(left, x);
                    right = std::max(right, x);
                    top = std::min(top, y);
                    bottom = std::max(bottom, y);
                }
            }
        }
        return right < left ? Box{box.x, box.y, 0, 0}
                            : Box{left, top, right - left + 1, bottom - top + 1};
    }
    bool operator==(const Picture &other) const {
        if (w_ != other.w_ || h_ != other.h_) {
            return false;
        }
        for (int y = 0; y < h_; ++y) {
            for (int x = 0; x < w_; ++x) {
                if (!(at(x, y) == other.at(x, y))) {
                    return false;
                }
            }
        }
        return true;
    }
    void save(const std::string &path) const {
        fl_write_png(path.c_str(), image_.get());
    }

 private:
    int w_, h_;
    std::unique_ptr<Fl_RGB_Image> image_;
};
