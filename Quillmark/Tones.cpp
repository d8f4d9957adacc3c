#include "Quillmark/Tones.h"

#include <QPalette>
#include <algorithm>
#include <array>
#include <cmath>

#include "Wording/Banner.h"

namespace quillmark {

namespace {

constexpr double leastContrast = 4.5;

struct Colors {
    QColor onLight, onDark;
};

Colors colorsOf(Tone tone) {
    switch (tone) {
        case Tone::good:
            return {QColor(0x14, 0x61, 0x36), QColor(0x86, 0xdd, 0xa4)};
        case Tone::caution:
            return {QColor(0x7a, 0x4b, 0x00), QColor(0xf3, 0xc5, 0x68)};
        case Tone::bad:
            return {QColor(0xa3, 0x1d, 0x18), QColor(0xff, 0xa8, 0xa0)};
        case Tone::unknown:
            break;
    }
    return {QColor(0x3d, 0x4a, 0x5c), QColor(0xc0, 0xca, 0xd8)};
}

double luminance(const QColor& color) {
    const auto linear = [](double part) {
        return part <= 0.03928 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

}  // namespace

QString toneSymbol(Tone tone) {
    switch (tone) {
        case Tone::good:
            return QStringLiteral("✓");
        case Tone::caution:
            return QStringLiteral("!");
        case Tone::bad:
            return QStringLiteral("✕");
        case Tone::unknown:
            break;
    }
    return QStringLiteral("?");
}

QString toneWord(Tone tone, const Words& words) {
    return QString::fromStdString(toneWord(tone, words.reader));
}

double contrast(const QColor& a, const QColor& b) {
    const auto [darker, lighter] = std::minmax({luminance(a), luminance(b)});
    return (lighter + 0.05) / (darker + 0.05);
}

QColor toneColor(Tone tone, const QColor& ground, const QPalette& palette) {
    const Colors colors = colorsOf(tone);
    for (const QColor& color : {colors.onLight, colors.onDark}) {
        if (contrast(color, ground) >= leastContrast) return color;
    }
    return palette.color(QPalette::WindowText);
}

QColor fadedText(const QPalette& palette) {
    const QColor text = palette.color(QPalette::Text), ground = palette.color(QPalette::Base);
    const auto mixed = [](float a, float b) { return a * 0.7F + b * 0.3F; };
    return QColor::fromRgbF(mixed(text.redF(), ground.redF()), mixed(text.greenF(), ground.greenF()),
                            mixed(text.blueF(), ground.blueF()));
}

namespace {

QColor mixed(const QColor& ground, const QColor& color, float part) {
    const auto one = [part](float a, float b) { return a * (1 - part) + b * part; };
    return QColor::fromRgbF(one(ground.redF(), color.redF()), one(ground.greenF(), color.greenF()),
                            one(ground.blueF(), color.blueF()));
}

bool isLight(const QColor& ground) { return luminance(ground) > 0.18; }

}  // namespace

QColor toneGround(Tone tone, const QPalette& palette) {
    const QColor ground = palette.color(QPalette::Base);
    const Colors colors = colorsOf(tone);
    return mixed(ground, isLight(ground) ? colors.onLight : colors.onDark, 0.10F);
}

QColor bandGround(Tone tone, const QPalette& palette) {
    const QColor ground = palette.color(QPalette::Base);
    if (!isLight(ground)) return mixed(ground, colorsOf(tone).onDark, 0.16F);
    const QColor bright = tone == Tone::caution ? QColor(0xff, 0xb8, 0x30) : colorsOf(tone).onLight;
    return mixed(ground, bright, tone == Tone::caution ? 0.22F : 0.12F);
}

}  // namespace quillmark
