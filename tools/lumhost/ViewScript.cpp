#include "tools/lumhost/ViewScript.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

struct KeyWord {
    const char* word;
    ViewKey key;
};

const KeyWord kKeyWords[] = {
    {"space", ViewKey::Space}, {"right", ViewKey::Right}, {"left", ViewKey::Left}, {"r", ViewKey::Reverse},
    {"l", ViewKey::Loop},      {"q", ViewKey::Quit},      {"escape", ViewKey::Quit},
};

/// A whole number from `minimum` to `maximum`, or -1.
int Number(const std::string& text, int minimum, int maximum) {
    if (text.empty() || text.size() > 9 || !std::all_of(text.begin(), text.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c)) != 0;
        }))
        return -1;
    const int value = std::atoi(text.c_str());
    return value >= minimum && value <= maximum ? value : -1;
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

bool IsScreenshotName(const std::string& file) {
    const size_t dot = file.rfind('.');
    if (dot == std::string::npos || dot == 0 || file[dot - 1] == '/') return false;
    const std::string extension = Lower(file.substr(dot + 1));
    return extension == "bmp" || extension == "png" || extension == "jpg" || extension == "jpeg";
}

const char* ViewKeyName(ViewKey key) {
    for (const KeyWord& k : kKeyWords)
        if (k.key == key) return k.word;
    return "?";
}

bool ParseViewScript(const std::string& text, std::vector<ViewStep>& steps, std::string& error) {
    steps.clear();
    size_t at = 0;
    while (at < text.size()) {
        if (text[at] == ',' || std::isspace(static_cast<unsigned char>(text[at]))) {
            ++at;
            continue;
        }
        size_t end = at;
        while (end < text.size() && text[end] != ',' && !std::isspace(static_cast<unsigned char>(text[end]))) ++end;
        const std::string token = text.substr(at, end - at);
        at = end;

        ViewStep step;
        const size_t colon = token.find(':');
        const std::string word = Lower(token.substr(0, colon));
        const std::string value = colon == std::string::npos ? "" : token.substr(colon + 1);
        if (colon == std::string::npos) {
            const KeyWord* match = nullptr;
            for (const KeyWord& k : kKeyWords)
                if (word == k.word) match = &k;
            if (!match) {
                error = "unknown key '" + token + "' (keys: space right left r l q escape)";
                return false;
            }
            step.kind = ViewStep::Key;
            step.key = match->key;
        } else if (word == "wait") {
            step.kind = ViewStep::Wait;
            step.number = Number(value, 0, 600000);
            if (step.number < 0) {
                error = "wait needs milliseconds from 0 to 600000, not '" + value + "'";
                return false;
            }
        } else if (word == "frames") {
            step.kind = ViewStep::Frames;
            step.number = Number(value, 1, 1000000);
            if (step.number < 0) {
                error = "frames needs a count from 1 to 1000000, not '" + value + "'";
                return false;
            }
        } else if (word == "shot") {
            step.kind = ViewStep::Shot;
            step.file = value;
            if (!IsScreenshotName(value)) {
                error = "shot needs a file name ending in .bmp, .png or .jpg, not '" + value + "'";
                return false;
            }
        } else {
            error = "unknown step '" + token + "' (steps: a key, wait:MS, frames:N, shot:FILE)";
            return false;
        }
        steps.push_back(step);
    }
    return true;
}
