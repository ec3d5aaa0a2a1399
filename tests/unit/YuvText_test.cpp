#include "lib/YuvText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include "Folder.h"

namespace {

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";
constexpr unsigned int kSize = 25;
constexpr unsigned char kOld = 0x55;  // what is in a picture before it is drawn on

class Text : public YuvText {
public:
    using YuvText::clockText;
    using YuvText::glyph_to_outbuff;
    using YuvText::kTextCapacity;

    static std::string clock(size_t capacity, time_t now)
    {
        char text[kTextCapacity] = "unset";
        clockText(text, capacity, now);
        return text;
    }
};

/// A picture with its chroma and some bytes behind it that nobody may touch.
struct Picture {
    Picture(unsigned int width, unsigned int height, YuvText::YUVTEXT_TYPE type, unsigned int characters = 20)
        : bytes(size_t{width} * height * 3 / 2 + 64, kOld)
    {
        text.characters = characters;
        text.dest.buffer = bytes.data();
        text.dest.width = width;
        text.dest.height = height;
        text.type = type;
    }
    unsigned char& at(unsigned int x, unsigned int y) { return bytes[size_t{y} * text.dest.width + x]; }

    std::vector<unsigned char> bytes;
    YuvText::YUV_TEXT text;
};

/// The text as it has to look, drawn pixel by pixel with a font of the test's own.
class Reference {
public:
    Reference()
    {
        EXPECT_EQ(FT_Init_FreeType(&library_), 0);
        EXPECT_EQ(FT_New_Face(library_, kFont, 0, &face_), 0);
        EXPECT_EQ(FT_Set_Pixel_Sizes(face_, 0, kSize), 0);
    }
    ~Reference() { FT_Done_FreeType(library_); }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    std::vector<unsigned char> draw(Picture picture, const std::string& text)
    {
        const unsigned int height = picture.text.dest.height;
        std::fill_n(picture.bytes.begin(), size_t{std::min(kSize, height)} * picture.text.dest.width, 0);
        unsigned int pen = 0;
        for (const char character : text) {
            EXPECT_EQ(FT_Load_Char(face_, static_cast<unsigned char>(character), FT_LOAD_RENDER), 0);
            const FT_Bitmap& glyph = face_->glyph->bitmap;
            const unsigned int top = (kSize - glyph.rows) / 2 + 3;
            for (unsigned int y = 0; y < glyph.rows && y + 2 * top < height; ++y) {
                for (unsigned int x = 0; x < glyph.width && pen + 2 + x < picture.text.dest.width; ++x) {
                    picture.at(pen + 2 + x, top + y) =
                        glyph.buffer[y * static_cast<unsigned int>(glyph.pitch) + x];
                }
            }
            pen += glyph.width == 0 ? kSize : glyph.width + 4;
        }
        return picture.bytes;
    }

private:
    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
};

class Clock : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(yuv_.setup(kSize, kFont)); }

    /// Draws when the second does not change meanwhile, and says which text is due.
    std::string draw(Picture& picture)
    {
        for (;;) {
            const time_t now = ::time(nullptr);
            const Picture untouched = picture;
            const bool drawn = yuv_.draw(picture.text);
            if (now == ::time(nullptr)) {
                EXPECT_TRUE(drawn);
                return Text::clock(picture.text.characters, now).substr(0, picture.text.characters);
            }
            picture.bytes = untouched.bytes;
            picture.text.dest.buffer = picture.bytes.data();
        }
    }

    Text yuv_;
    Reference reference_;
};

TEST(YuvText, TheYearsEndOrAnotherZoneOrLengthIsShownWrong)
{
    struct Case {
        const char* zone;
        time_t now;
        size_t capacity;
        const char* text;
    };
    constexpr const char* kNoTime = "--/--/---- --:--:--";
    const Case cases[] = {
        {"UTC", 1798761599, 20, "12/31/26 23:59:59"},
        {"UTC", 1798761600, 18, "01/01/27 00:00:00"},
        {"UTC", 1798761600, 17, kNoTime},
        {"UTC", 1798761600, 0, kNoTime},
        {"XYZ-02", 1798761599, 20, "01/01/27 01:59:59"},
        {"XYZ+02", 1798761600, 20, "12/31/26 22:00:00"},
        {"UTC", 1835395200, 20, "02/29/28 00:00:00"},
        {"UTC", 0, 20, "01/01/70 00:00:00"},
        {"UTC", 2147483647, 20, "01/19/38 03:14:07"},
        {"UTC", std::numeric_limits<time_t>::max(), 20, sizeof(time_t) > 4 ? kNoTime : "01/19/38 03:14:07"},
    };
    for (const Case& one : cases) {
        ::setenv("TZ", one.zone, 1);
        ::tzset();
        EXPECT_EQ(Text::clock(one.capacity, one.now), one.text) << one.zone;
    }
    ::unsetenv("TZ");
    ::tzset();
}

TEST(YuvText, AFontThatCannotBeLoadedIsDrawnWith)
{
    const support::Folder folder;
    ASSERT_TRUE(support::writeFile(folder.file("no.ttf"), "this is no font"));
    Picture picture(64, 32, YuvText::TEXT);
    {
        Text never;
        EXPECT_FALSE(never.draw(picture.text));
    }
    Text yuv;
    EXPECT_FALSE(yuv.setup(kSize, folder.file("missing.ttf").c_str()));
    EXPECT_FALSE(yuv.setup(kSize, folder.file("no.ttf").c_str()));
    EXPECT_FALSE(yuv.draw(picture.text));
    EXPECT_TRUE(yuv.setup(kSize, kFont));
    EXPECT_FALSE(yuv.setup(kSize, folder.file("missing.ttf").c_str()));
    EXPECT_FALSE(yuv.draw(picture.text)) << "with the font before";
    EXPECT_TRUE(yuv.setup(kSize, kFont));
    EXPECT_TRUE(yuv.draw(picture.text));
}

TEST_F(Clock, APixelDiffersFromTheFontsOrTouchesTheRestOrASmallPictureIsOverrun)
{
    // Width, height, characters: pictures too small for the text, fewer characters than the time has, more
    // than the text holds.
    constexpr unsigned int kCases[][3] = {{1440, 64, 20}, {100, 64, 20},  {1, 64, 20},     {2, 64, 20},
                                          {3, 64, 20},    {400, 26, 20},  {400, 17, 20},   {400, 9, 20},
                                          {400, 1, 20},   {40, 40, 20},   {1440, 64, 0},   {1440, 64, 5},
                                          {1440, 64, 17}, {1440, 64, 18}, {1440, 64, 1000}};
    for (const auto type : {YuvText::CLOCKOVERLAY, YuvText::TEXT}) {
        for (const auto& [width, height, characters] : kCases) {
            Picture picture(width, height, type, characters);
            yuv_.init(picture.text);
            EXPECT_EQ(picture.text.dest.uvStart, width * height);
            EXPECT_EQ(picture.text.area.width, characters * kSize);
            const Picture before = picture;
            const std::string clock = draw(picture);
            EXPECT_EQ(clock.substr(0, 2) == "--", characters > 0 && characters < 18);
            const std::string text =
                type == YuvText::TEXT ? std::string("-", std::min(characters, 1U)) : clock;
            EXPECT_TRUE(picture.bytes == reference_.draw(before, text))
                << width << " by " << height << ", " << characters << " characters";
        }
    }
}

/// A bitmap of the test's own: each pixel holds its line and column, each line ends in filler.
struct Glyph {
    Glyph(unsigned int width, unsigned int rows, unsigned int pitch) : bytes(size_t{pitch} * rows, 0xEE)
    {
        bitmap.width = width;
        bitmap.rows = rows;
        bitmap.pitch = static_cast<int>(pitch);
        bitmap.buffer = bytes.data();
        for (unsigned int y = 0; y < rows; ++y) {
            for (unsigned int x = 0; x < std::min(width, pitch); ++x) {
                bytes[size_t{y} * pitch + x] = static_cast<unsigned char>(y * 10 + x + 1);
            }
        }
    }
    std::vector<unsigned char> bytes;
    FT_Bitmap bitmap = {};
};

TEST_F(Clock, LinesOfAPaddedBitmapSlant)
{
    Picture picture(40, 40, YuvText::TEXT);
    EXPECT_EQ(yuv_.glyph_to_outbuff(picture.text, Glyph(3, 5, 8).bitmap, 7), 14U);
    Picture expected(40, 40, YuvText::TEXT);
    for (unsigned int y = 0; y < 5; ++y) {
        for (unsigned int x = 0; x < 3; ++x) {
            expected.at(9 + x, 13 + y) = static_cast<unsigned char>(y * 10 + x + 1);  // 13: (25 - 5) / 2 + 3
        }
    }
    EXPECT_TRUE(picture.bytes == expected.bytes);
}

TEST_F(Clock, AnOddGlyphLeavesThePicture)
{
    const Glyph odd[] = {Glyph(60, 5, 60), Glyph(5, 60, 5), Glyph(60, 60, 60), Glyph(16, 5, 2),
                         Glyph(5, 26, 5)};
    for (const Glyph& glyph : odd) {
        for (const unsigned int pen : {0U, 20U, 37U, 38U, 39U, 1'000'000U}) {
            Picture picture(40, 33, YuvText::TEXT);
            EXPECT_EQ(yuv_.glyph_to_outbuff(picture.text, glyph.bitmap, pen), pen + 4 + glyph.bitmap.width);
            const auto chroma = picture.bytes.begin() + 40 * 33;
            EXPECT_TRUE(
                std::all_of(chroma, picture.bytes.end(), [](unsigned char byte) { return byte == kOld; }));
            for (unsigned int y = 0; y < 33; ++y) {
                for (unsigned int x = 0; x < std::min(pen + 2, 40U); ++x) {
                    ASSERT_EQ(picture.at(x, y), kOld) << "wrapped into the next line";
                }
            }
        }
    }
}

}  // namespace
