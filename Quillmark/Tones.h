#pragma once

#include <QColor>
#include <QString>

#include "Quillmark/Words.h"
#include "QuillmarkKit/Report.h"

class QPalette;

/// How a tone looks and is called: a symbol, a word and a colour, never the colour alone.
namespace quillmark {

/// "✓", "!", "✕" or "?".
QString toneSymbol(Tone tone);
/// A word for those who hear the symbol: "Good", "Caution", "Bad", "Unknown".
QString toneWord(Tone tone, const Words& words);

/// The ratio of the brightness of two colours (WCAG 2.1): 1 to 21.
double contrast(const QColor& a, const QColor& b);

/// The colour of a tone's text on a ground: at least 4.5:1, else it is the palette's own text.
QColor toneColor(Tone tone, const QColor& ground, const QPalette& palette);
/// For what is of less weight, and yet has to be read.
QColor fadedText(const QPalette& palette);
/// The palette's ground with a little of the tone in it, for a banner or a chip.
QColor toneGround(Tone tone, const QPalette& palette);
/// The same, stronger, for a stripe that has to be as loud as a headline.
QColor bandGround(Tone tone, const QPalette& palette);

}  // namespace quillmark
