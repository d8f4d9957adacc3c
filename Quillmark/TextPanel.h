#pragma once

#include <QTimer>
#include <cstddef>
#include <vector>

#include "Quillmark/Panels.h"
#include "Quillmark/TextBlocks.h"

class QVBoxLayout;

namespace quillmark {

class TextBlockFrame;

/// A message's text to read, in blocks. Tab goes from block to block; the arrow keys go up and down to the
/// next one that is marked, and scroll where there is none. Each block is one item for screen readers.
class TextPanel : public Scroller {
    Q_OBJECT
public:
    explicit TextPanel(const Words& words, QWidget* parent = nullptr);

    /// Replaces what is shown, and scrolls to its beginning. Of much text the first of it is there at once,
    /// the rest in later turns of the event loop, while it is seen. `intro` stands above it, in our own
    /// words.
    void setContents(const QString& intro, const std::vector<TextBlock>& blocks);
    /// Whether nothing is left for later turns.
    bool isComplete() const { return m_block == m_blocks.size(); }
    bool hasMarked() const;
    /// Puts the keyboard into the marked block behind or before the one that has it. Whether there is one.
    bool goToMarked(bool isForwards);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void rebuild();
    void goOn();

    Words m_words;
    QString m_intro;
    std::vector<TextBlock> m_blocks;
    std::vector<TextBlockFrame*> m_frames;
    std::ptrdiff_t m_last = -1;  // of the frames, that was gone to
    std::size_t m_block = 0;     // the next one to build
    qsizetype m_line = 0;        // the next one of it
    qsizetype m_lines = 0;       // that are built
    QVBoxLayout* m_column = nullptr;
    QTimer m_next;
    bool m_isBuilding = false;
};

}  // namespace quillmark
