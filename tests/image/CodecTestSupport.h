// Pixels for the codec tests and a target that keeps what a decoder gives.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "framework/LUMArch/CodecTypes.h"

/// A test pattern with gradients, edges and noise.
inline std::vector<uint8_t> Pattern(int width, int height, int bytesPerPixel, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> pixels(size_t(width) * height * bytesPerPixel);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < bytesPerPixel; ++c) {
                int value = (x * (c + 1) + y * 2) / 5 + ((x / 37 + y / 29) % 2) * 90 + int(random() % 24);
                pixels[(size_t(y) * width + x) * bytesPerPixel + c] = static_cast<uint8_t>(value);
            }
    return pixels;
}

struct Decoded final : ImageTarget {
    int32_t width = 0, height = 0, bits = 0;
    std::vector<uint8_t> pixels;
    HRESULT Allocate(int32_t w, int32_t h, int32_t b, uint8_t** out, int32_t* stride) override {
        width = w, height = h, bits = b;
        pixels.assign(size_t(w) * h * (b / 8), 0);
        *out = pixels.data();
        *stride = w * (b / 8);
        return S_OK;
    }
};
