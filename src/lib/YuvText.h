#pragma once

#include <ft2build.h>
#include <sys/types.h>

#include <array>
#include <ctime>
#include <vector>

#include FT_FREETYPE_H

/// Renders one short line of text into the luma plane of a YUV picture: glyph coverage as brightness on a
/// black band along the picture's top. Made for the clock in the recording frame.
///
/// Threads:  one thread (the frame loop's).
/// Lifetime: setup() loads the font, the destructor releases it; neither needs the other. The picture stays
///           the caller's.
/// Errors:   false, without a message. A setup() that failed holds nothing, and draw() is then false.
/// Memory:   the clock's characters are rendered once, in setup(): drawing them takes nothing from the heap.
/// Units:    pixels; one byte of luma a pixel, `dest.width` bytes a line.
class YuvText {
public:
    enum YUVTEXT_TYPE { TEXT = 0, CLOCKOVERLAY = 1 };

    /// A text in a picture; the caller's. It fills `characters`, `dest` without `uvStart`, and `type`; init()
    /// does the rest.
    struct YUV_TEXT {
        unsigned int characters = 0;  ///< capacity of the text, terminator included
        struct {
            unsigned int width = 0;
            unsigned int height = 0;
        } area;  ///< the band
        struct {
            unsigned char* buffer = nullptr;  ///< the picture's start: its luma plane
            unsigned int width = 0;
            unsigned int height = 0;
            unsigned int uvStart = 0;  ///< byte index of the chroma plane
        } dest;
        YUVTEXT_TYPE type = TEXT;
    };

    YuvText() = default;
    YuvText(const YuvText&) = delete;
    YuvText(YuvText&&) = delete;
    YuvText& operator=(const YuvText&) = delete;
    YuvText& operator=(YuvText&&) = delete;
    ~YuvText();

    /// Loads the font at `fontPath` for glyphs of `size` pixels (1 to 255).
    bool setup(uint size, const char* fontPath);

    /// Computes the band of `t` for the size given to setup(), and where its chroma starts.
    void init(YUV_TEXT& t) const;

    /// Clears the band and renders the text: the local date and time for CLOCKOVERLAY, "-" for TEXT. Whatever
    /// would lie outside the picture is left out. False when a glyph cannot be rendered; those before it are
    /// then in the picture.
    bool draw(YUV_TEXT& t);

protected:
    static constexpr size_t kTextCapacity = 64;  // bytes; the longest text here takes 20

    /// Writes `now` as the clock shows it into `text`, using at most `capacity` bytes, terminator included;
    /// the fallback text, which may be longer, when it does not fit or has no local time.
    static void clockText(char (&text)[kTextCapacity], size_t capacity, time_t now);

    /// Places one rendered glyph at pen position `x` and returns the next one.
    unsigned int glyph_to_outbuff(YUV_TEXT& t, const FT_Bitmap& glyph, unsigned int x) const;

private:
    /// A character of the clock as FreeType rendered it.
    struct Glyph {
        FT_Bitmap bitmap{};                   ///< `buffer` is that of `coverage`
        std::vector<unsigned char> coverage;  ///< a byte a pixel
        bool kept = false;
    };
    static constexpr size_t kCodes = 128;  // of ASCII

    bool drawCharacter(YUV_TEXT& t, char character, unsigned int& x);
    bool render(char character);
    void keepClockGlyphs();
    void release();

    u_int8_t cSize = 0;  ///< glyph size, band height and width of a space
    FT_Library ft = nullptr;
    FT_Face face = nullptr;
    std::array<Glyph, kCodes> glyphs_;  ///< by character; those of the clock are kept
};
