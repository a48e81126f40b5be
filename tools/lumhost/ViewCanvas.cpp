#include "tools/lumhost/ViewCanvas.h"

#include <algorithm>
#include <cstring>

#include "tools/lumhost/BitmapFont.h"

bool ViewImage::Assign(const uint8_t* rows, int w, int h, int bitsPerPixel, int rowStride) {
    const int bytesPerPixel = bitsPerPixel / 8;
    const bool valid = rows && w > 0 && h > 0 && (bitsPerPixel == 8 || bitsPerPixel == 24 || bitsPerPixel == 32) &&
                       rowStride >= w * bytesPerPixel;
    if (!valid) {
        *this = ViewImage{};
        return false;
    }
    width = w;
    height = h;
    bits = bitsPerPixel;
    stride = w * bytesPerPixel;  // the copy is packed
    pixels.resize(static_cast<size_t>(stride) * h);
    for (int y = 0; y < h; ++y)
        std::memcpy(pixels.data() + static_cast<size_t>(y) * stride, rows + static_cast<size_t>(y) * rowStride,
                    static_cast<size_t>(stride));
    return true;
}

uint32_t ViewImage::RGB(int x, int y) const {
    const uint8_t* p = pixels.data() + static_cast<size_t>(y) * stride + static_cast<size_t>(x) * (bits / 8);
    if (bits == 8) return static_cast<uint32_t>(p[0]) * 0x010101u;
    return static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[0];
}

namespace ViewLayout {

ViewRect FitImage(int canvasWidth, int canvasHeight, int imageWidth, int imageHeight) {
    ViewRect rect;
    if (canvasWidth <= 0 || canvasHeight <= 0 || imageWidth <= 0 || imageHeight <= 0) return rect;
    const int64_t cw = canvasWidth, ch = canvasHeight, iw = imageWidth, ih = imageHeight;
    if (cw * ih <= ch * iw) {  // the width limits
        rect.width = canvasWidth;
        rect.height = static_cast<int>(std::max<int64_t>(1, ih * cw / iw));
    } else {
        rect.height = canvasHeight;
        rect.width = static_cast<int>(std::max<int64_t>(1, iw * ch / ih));
    }
    rect.x = (canvasWidth - rect.width) / 2;
    rect.y = (canvasHeight - rect.height) / 2;
    return rect;
}

std::vector<std::string> FitLines(int canvasWidth, const std::vector<std::string>& lines) {
    const int room = std::max(0, canvasWidth - 2 * (kMargin + kPadding));
    std::vector<std::string> fitted;
    for (const std::string& line : lines) fitted.push_back(BitmapFont::FitWidth(line, room, kTextScale));
    return fitted;
}

ViewRect OverlayBox(int canvasWidth, int canvasHeight, const std::vector<std::string>& lines) {
    ViewRect box;
    if (lines.empty()) return box;
    int widest = 0;
    for (const std::string& line : FitLines(canvasWidth, lines))
        widest = std::max(widest, BitmapFont::TextWidth(line, kTextScale));
    const int count = static_cast<int>(lines.size());
    box.width = widest + 2 * kPadding;
    box.height = (count - 1) * kLineHeight + BitmapFont::kGlyphHeight * kTextScale + 2 * kPadding;
    box.x = kMargin;
    box.y = std::max(0, canvasHeight - kMargin - box.height);
    return box;
}

void LineOrigin(int canvasWidth, int canvasHeight, int lineCount, int index, int& x, int& y) {
    const int boxHeight = (lineCount - 1) * kLineHeight + BitmapFont::kGlyphHeight * kTextScale + 2 * kPadding;
    x = kMargin + kPadding;
    y = std::max(0, canvasHeight - kMargin - boxHeight) + kPadding + index * kLineHeight;
}

}  // namespace ViewLayout

void ViewCanvas::Resize(int width, int height) {
    m_Width = std::max(0, width);
    m_Height = std::max(0, height);
    m_Pixels.assign(static_cast<size_t>(m_Width) * m_Height, ViewLayout::kBackground);
}

void ViewCanvas::Fill(uint32_t colour) { std::fill(m_Pixels.begin(), m_Pixels.end(), colour); }

void ViewCanvas::DrawImage(const ViewImage& image) {
    Fill(ViewLayout::kBackground);
    if (image.Empty()) return;
    const ViewRect rect = ViewLayout::FitImage(m_Width, m_Height, image.width, image.height);
    if (rect.width <= 0 || rect.height <= 0) return;
    // Source column of every canvas column, computed once per image.
    std::vector<int> columns(static_cast<size_t>(rect.width));
    for (int x = 0; x < rect.width; ++x)
        columns[static_cast<size_t>(x)] = static_cast<int>(static_cast<int64_t>(x) * image.width / rect.width);
    for (int y = 0; y < rect.height; ++y) {
        const int sourceRow = static_cast<int>(static_cast<int64_t>(y) * image.height / rect.height);
        uint32_t* row = m_Pixels.data() + static_cast<size_t>(rect.y + y) * m_Width + rect.x;
        for (int x = 0; x < rect.width; ++x) row[x] = image.RGB(columns[static_cast<size_t>(x)], sourceRow);
    }
}

void ViewCanvas::FillRect(const ViewRect& rect, uint32_t colour) {
    const int left = std::max(0, rect.x), top = std::max(0, rect.y);
    const int right = std::min(m_Width, rect.x + rect.width), bottom = std::min(m_Height, rect.y + rect.height);
    for (int y = top; y < bottom; ++y)
        std::fill(m_Pixels.begin() + static_cast<std::ptrdiff_t>(y) * m_Width + left,
                  m_Pixels.begin() + static_cast<std::ptrdiff_t>(y) * m_Width + right, colour);
}

void ViewCanvas::DrawText(const std::string& text, int x, int y, int scale, uint32_t colour) {
    BitmapFont::Render(text, x, y, scale, [&](int px, int py) {
        if (px >= 0 && py >= 0 && px < m_Width && py < m_Height)
            m_Pixels[static_cast<size_t>(py) * m_Width + px] = colour;
    });
}

void ViewCanvas::DrawOverlay(const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    FillRect(ViewLayout::OverlayBox(m_Width, m_Height, lines), ViewLayout::kBoxColour);
    const std::vector<std::string> fitted = ViewLayout::FitLines(m_Width, lines);
    const int count = static_cast<int>(fitted.size());
    for (int i = 0; i < count; ++i) {
        int x = 0, y = 0;
        ViewLayout::LineOrigin(m_Width, m_Height, count, i, x, y);
        DrawText(fitted[static_cast<size_t>(i)], x, y, ViewLayout::kTextScale, ViewLayout::kTextColour);
    }
}
