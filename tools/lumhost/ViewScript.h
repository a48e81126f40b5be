// The scripted mode of the live view: a list of steps given with --keys,
// run one after another by the window's own thread, so that a test or a
// demo can drive the window without a keyboard.
//
//   space right left r l q escape   press that key
//   wait:MS                         let MS milliseconds pass
//   frames:N                        wait until N more images have arrived
//   shot:FILE                       save what the window shows (.bmp, .png, .jpg)
//
// Steps are separated by blanks or commas, e.g. "frames:5 space wait:300 shot:a.png".
#pragma once

#include <string>
#include <vector>

/// The keys the view understands.
enum class ViewKey { Space, Right, Left, Reverse, Loop, Quit };

struct ViewStep {
    enum Kind { Key, Wait, Frames, Shot } kind = Key;
    ViewKey key = ViewKey::Space;
    /// Milliseconds for Wait, images for Frames.
    int number = 0;
    /// File for Shot.
    std::string file;
};

/// Parses `text`; on failure returns false with the reason in `error`.
bool ParseViewScript(const std::string& text, std::vector<ViewStep>& steps, std::string& error);

/// True when `file` ends in an image extension the framework writes.
bool IsScreenshotName(const std::string& file);

/// "space", "right", ... as written in a script.
const char* ViewKeyName(ViewKey key);
