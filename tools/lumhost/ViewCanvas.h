// What the live view draws, without any windowing library: an image scaled
// to fit a canvas of 32-bit pixels (0x00RRGGBB) and a box of text lines over
// its bottom-left corner, drawn with the built-in bitmap font.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A private copy of a delivered image, in the framework's layout: rows
/// top-down, `stride` bytes apart; 8 bits gray, 24 bits B,G,R, 32 bits
/// B,G,R,A.
struct ViewImage {
    int width = 0;
    int height = 0;
    int bits = 0;
    int stride = 0;
    std::vector<uint8_t> pixels;

    bool Empty() const { return width <= 0 || height <= 0 || pixels.empty(); }
    /// Copies `rows` of the given layout; false (and empty) for a format
    /// other than 8, 24 or 32 bits, or a stride too short for the width.
    bool Assign(const uint8_t* rows, int width, int height, int bits, int stride);
    /// The pixel at (x, y) as 0x00RRGGBB (gray repeated in all three).
    uint32_t RGB(int x, int y) const;
};

struct ViewRect {
    int x = 0, y = 0, width = 0, height = 0;
};

namespace ViewLayout {

/// Colours of the canvas.
constexpr uint32_t kBackground = 0x202020;  // around an image that does not fill the canvas
constexpr uint32_t kBoxColour = 0x000000;
constexpr uint32_t kTextColour = 0xFFFFFF;
/// The overlay's text is the font at this scale.
constexpr int kTextScale = 2;
/// Distance of the overlay box from the canvas's left and bottom edges,
/// and of the text from the box's edges.
constexpr int kMargin = 8;
constexpr int kPadding = 6;
/// Distance from one line of text to the next.
constexpr int kLineHeight = 18;

/// Where an image of `imageWidth` x `imageHeight` lands on the canvas:
/// scaled by the same factor in both directions to the largest size that
/// fits, centred.
ViewRect FitImage(int canvasWidth, int canvasHeight, int imageWidth, int imageHeight);

/// `lines` shortened in the middle ("...") to fit the canvas's width.
std::vector<std::string> FitLines(int canvasWidth, const std::vector<std::string>& lines);

/// The overlay box for `lines` (as FitLines shortens them) and the top-left
/// corner of line `index`.
ViewRect OverlayBox(int canvasWidth, int canvasHeight, const std::vector<std::string>& lines);
void LineOrigin(int canvasWidth, int canvasHeight, int lineCount, int index, int& x, int& y);

}  // namespace ViewLayout

class ViewCanvas {
public:
    void Resize(int width, int height);
    int Width() const { return m_Width; }
    int Height() const { return m_Height; }
    /// Rows of Width() pixels, 0x00RRGGBB, top-down, no padding.
    const std::vector<uint32_t>& Pixels() const { return m_Pixels; }
    uint32_t At(int x, int y) const { return m_Pixels[static_cast<size_t>(y) * m_Width + x]; }

    void Fill(uint32_t colour);
    /// Background, then the image scaled to fit (nearest pixel: canvas
    /// column X of the image's rectangle shows image column
    /// X * imageWidth / rectWidth, rows alike).
    void DrawImage(const ViewImage& image);
    /// The box with `lines` over the bottom-left corner.
    void DrawOverlay(const std::vector<std::string>& lines);
    void FillRect(const ViewRect& rect, uint32_t colour);
    void DrawText(const std::string& text, int x, int y, int scale, uint32_t colour);

private:
    int m_Width = 0;
    int m_Height = 0;
    std::vector<uint32_t> m_Pixels;
};
