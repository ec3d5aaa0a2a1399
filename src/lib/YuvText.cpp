#include "lib/YuvText.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lib/interrupted.h"

namespace {

constexpr unsigned int kTopMargin = 3;   // lines above the band's glyphs
constexpr unsigned int kSideMargin = 2;  // pixels left and right of a glyph

constexpr char kNoTime[] = "--/--/---- --:--:--";
constexpr char kClockCharacters[] = "0123456789/: -";

}  // namespace

YuvText::~YuvText()
{
    release();
}

bool YuvText::setup(uint size, const char* fontPath)
{
    release();
    cSize = static_cast<u_int8_t>(size);
    if (FT_Init_FreeType(&ft) != 0) {
        ft = nullptr;
        return false;
    }
    const auto openFace = [&] {
        errno = 0;  // the library says nothing of why a file did not open
        return FT_New_Face(ft, fontPath, 0, &face) == 0 ? 0 : -1;
    };
    if (retryInterrupted(openFace) != 0 || FT_Set_Pixel_Sizes(face, 0, cSize) != 0) {
        release();
        return false;
    }
    keepClockGlyphs();
    return true;
}

/// One that cannot be rendered is left to draw(), which fails for it.
void YuvText::keepClockGlyphs()
{
    for (const char* character = kClockCharacters; *character != '\0'; ++character) {
        if (!render(*character)) {
            continue;
        }
        const FT_Bitmap& rendered = face->glyph->bitmap;
        Glyph& glyph = glyphs_[static_cast<unsigned char>(*character)];
        const size_t bytes = size_t{rendered.rows} * static_cast<unsigned int>(std::abs(rendered.pitch));
        glyph.coverage.assign(rendered.buffer, rendered.buffer + bytes);
        glyph.bitmap = rendered;
        glyph.bitmap.buffer = glyph.coverage.data();
        glyph.kept = true;
    }
}

void YuvText::init(YUV_TEXT& t) const
{
    t.area.width = cSize * t.characters;
    t.area.height = cSize;
    t.dest.uvStart = t.dest.width * t.dest.height;
}

bool YuvText::draw(YUV_TEXT& t)
{
    char text[kTextCapacity] = "-";
    if (t.type == CLOCKOVERLAY) {
        clockText(text, t.characters, std::time(nullptr));
    }
    const size_t bandLines = std::min(t.area.height, t.dest.height);
    std::memset(t.dest.buffer, 0, bandLines * t.dest.width);

    const size_t count = std::min<size_t>(std::strlen(text), t.characters);
    unsigned int x = 0;
    for (size_t i = 0; i < count; ++i) {
        if (!drawCharacter(t, text[i], x)) {
            return false;
        }
    }
    return true;
}

void YuvText::clockText(char (&text)[kTextCapacity], size_t capacity, time_t now)
{
    std::tm local = {};
    const bool known = localtime_r(&now, &local) != nullptr;
// The clock shows the year in two digits.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"
    if (!known || std::strftime(text, std::min(capacity, kTextCapacity), "%m/%d/%y %H:%M:%S", &local) == 0) {
        std::memcpy(text, kNoTime, sizeof kNoTime);
    }
#pragma GCC diagnostic pop
}

bool YuvText::drawCharacter(YUV_TEXT& t, char character, unsigned int& x)
{
    const auto code = static_cast<unsigned char>(character);
    if (code < kCodes && glyphs_[code].kept) {
        x = glyph_to_outbuff(t, glyphs_[code].bitmap, x);
        return true;
    }
    if (!render(character)) {
        return false;
    }
    x = glyph_to_outbuff(t, face->glyph->bitmap, x);
    return true;
}

/// The result is in the face's glyph slot, up to the next one.
bool YuvText::render(char character)
{
    const FT_UInt index = FT_Get_Char_Index(face, static_cast<unsigned char>(character));
    return FT_Load_Glyph(face, index, FT_LOAD_DEFAULT) == 0 &&
           FT_Render_Glyph(face->glyph, FT_RENDER_MODE_NORMAL) == 0;
}

unsigned int YuvText::glyph_to_outbuff(YUV_TEXT& t, const FT_Bitmap& glyph, unsigned int x) const
{
    if (glyph.width == 0) {
        return x + cSize;
    }
    const unsigned int next = x + 2 * kSideMargin + glyph.width;

    // Each glyph is centred on its own; one that is taller than the band starts at the margin.
    const unsigned int top = (glyph.rows < cSize ? (cSize - glyph.rows) / 2 : 0) + kTopMargin;
    const unsigned int left = x + kSideMargin;
    if (2 * top >= t.dest.height || left >= t.dest.width) {
        return next;
    }
    const unsigned int rows = std::min(glyph.rows, t.dest.height - 2 * top);
    // A font that brings bitmaps of fewer bits a pixel has lines that are shorter than the glyph is wide.
    // A negative pitch says that the lowest line comes first.
    const auto pitch = static_cast<unsigned int>(std::abs(glyph.pitch));
    const unsigned int lineBytes = std::min(glyph.width, pitch);
    const unsigned int columns = std::min(lineBytes, t.dest.width - left);
    for (unsigned int r = 0; r < rows; ++r) {
        std::memcpy(t.dest.buffer + size_t{top + r} * t.dest.width + left,
                    glyph.buffer + size_t{glyph.pitch < 0 ? glyph.rows - 1 - r : r} * pitch, columns);
    }
    return next;
}

void YuvText::release()
{
    if (ft != nullptr) {
        FT_Done_FreeType(ft);  // takes the face with it
    }
    ft = nullptr;
    face = nullptr;
    for (Glyph& glyph : glyphs_) {
        glyph.kept = false;
    }
}
