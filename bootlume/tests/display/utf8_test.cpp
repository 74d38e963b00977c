#include "display/utf8.h"

#include <cairo.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>

namespace paint {
namespace {

const std::string REPLACEMENT = "\xEF\xBF\xBD";

char byteOf(std::uint32_t value) {
    return static_cast<char>(static_cast<unsigned char>(value));
}

/// The bytes that any number below 0x110000 would have, a character or not.
std::string encoded(std::uint32_t number) {
    if (number < 0x80) {
        return {byteOf(number)};
    }
    if (number < 0x800) {
        return {byteOf(0xC0 | number >> 6), byteOf(0x80 | (number & 0x3F))};
    }
    if (number < 0x10000) {
        return {byteOf(0xE0 | number >> 12), byteOf(0x80 | (number >> 6 & 0x3F)),
                byteOf(0x80 | (number & 0x3F))};
    }
    return {byteOf(0xF0 | number >> 18), byteOf(0x80 | (number >> 12 & 0x3F)),
            byteOf(0x80 | (number >> 6 & 0x3F)), byteOf(0x80 | (number & 0x3F))};
}

bool isRefused(std::uint32_t number) {
    return (number >= 0xD800 && number < 0xE000) || (number >= 0xFDD0 && number < 0xFDF0) ||
           number % 0x10000 >= 0xFFFE;
}

TEST(ADrawableText, IsTheGivenOneIfThatIsSound) {
    const std::string text = "Brem K5 Gerät 正在启动 \xF0\x9F\x98\x80\n";
    EXPECT_EQ(drawableText(text), text);
    EXPECT_EQ(drawableText(""), "");
}

TEST(ADrawableText, KeepsEveryCharacterAndReplacesWhatIsNone) {
    for (std::uint32_t number = 1; number < 0x110000; ++number) {
        const std::string text = "<" + encoded(number) + ">";
        const std::string expected = isRefused(number) ? "<" + REPLACEMENT + ">" : text;
        ASSERT_EQ(drawableText(text), expected) << std::hex << number;
    }
}

TEST(ADrawableText, HasOneReplacementForEachInvalidSequence) {
    const std::string r = REPLACEMENT;
    EXPECT_EQ(drawableText("a\xFF"
                           "b"),
              "a" + r + "b");
    EXPECT_EQ(drawableText("\xFF\xFE"), r + r);
    EXPECT_EQ(drawableText("\x80"), r);
    EXPECT_EQ(drawableText("\xC3"), r);
    EXPECT_EQ(drawableText("\xC3"
                           "a"),
              r + "a");
    EXPECT_EQ(drawableText("\xE2\x82"), r);
    EXPECT_EQ(drawableText("\xE2\x82"
                           "a"),
              r + "a");
    EXPECT_EQ(drawableText("\xF0\x9F\x98"), r);
    EXPECT_EQ(drawableText("\xF0\x9F\xC3\xA4"), r + "\xC3\xA4");
    EXPECT_EQ(drawableText("\xC0\xAF"), r + r);
    EXPECT_EQ(drawableText("\xE0\x80\x80"), r);
    EXPECT_EQ(drawableText("\xF4\x90\x80\x80"), r);
    EXPECT_EQ(drawableText("\xF5\x80"), r + r);
}

TEST(ADrawableText, IsTakenByCairoWhateverTheBytes) {
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB16_565, 16, 16), cairo_surface_destroy);
    const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> cr(cairo_create(surface.get()),
                                                                cairo_destroy);
    // Bytes that begin, go on and end sequences, and the edges of what is allowed.
    const std::string alphabet = "a\x80\x8F\x90\xA0\xB7\xBF\xBE\xC2\xE0\xED\xEF\xF0\xF4\xF5\xFF";
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (int length = 0; length < 6; ++length) {
            text += alphabet[random() % alphabet.size()];
        }
        cairo_text_extents_t extents;
        cairo_text_extents(cr.get(), drawableText(text).c_str(), &extents);
        ASSERT_EQ(cairo_status(cr.get()), CAIRO_STATUS_SUCCESS) << testing::PrintToString(text);
    }
}

} // namespace
} // namespace paint
