#include "Quillmark/PasteView.h"

#include <QAccessible>
#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"
#include "WindowBaseline/Mnemonics.h"

namespace quillmark {

namespace {

/// Laying out more than this would stop the window; it is taken without being shown.
constexpr qsizetype longestShown = 500'000;

}  // namespace

class SourceEdit : public QPlainTextEdit {
public:
    explicit SourceEdit(const Words& words) : m_words(words) {
        setTabChangesFocus(true);
        setLineWrapMode(NoWrap);
        setPlaceholderText(words("Paste the message’s source here"));
        setAccessibleName(words("Message source"));
        QFont fixed(QStringLiteral("monospace"));
        fixed.setStyleHint(QFont::Monospace);
        fixed.setPointSizeF(font().pointSizeF());
        setFont(fixed);
        // Typing into the line that stands for a long text gives the editor back.
        connect(this, &QPlainTextEdit::textChanged, this, [this] {
            if (!m_isSettingLine) m_long.clear();
        });
    }

    std::string source() const {
        return m_long.isEmpty() ? toPlainText().toStdString() : m_long.toStdString();
    }
    bool holdsSomething() const { return !m_long.isEmpty() || !document()->isEmpty(); }

protected:
    bool canInsertFromMimeData(const QMimeData* pasted) const override {
        return pasted->hasText() && !pasted->hasUrls();
    }
    void insertFromMimeData(const QMimeData* pasted) override {
        const QString text = pasted->text();
        if (text.size() <= longestShown) {
            insertPlainText(text);
            return;
        }
        m_long = text;
        m_isSettingLine = true;
        setPlainText(m_words("(A text of %1 characters, too long to be shown. It will be checked whole.)",
                             QString::fromStdString(m_words.reader.number(text.size()))));
        m_isSettingLine = false;
        selectAll();
    }

private:
    Words m_words;
    QString m_long;
    bool m_isSettingLine = false;
};

PasteView::PasteView(const Words& words, QWidget* parent)
    : QDialog(parent),
      m_edit(new SourceEdit(words)),
      m_refusal(new Card(Tone::caution)),
      m_refusalText(new PlainText({})) {
    setWindowTitle(words("Paste Source"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new PlainText(words(
        "In your mail program, show the message’s source (often called “View Source” or “Show Original”), "
        "select all of it, copy it and paste it here. The headers alone are enough to check who sent it.")));
    layout->addWidget(m_edit, 1);
    auto* refusal = new QHBoxLayout(m_refusal);
    refusal->addWidget(new ToneBadge(Tone::caution, 1.3, words), 0, Qt::AlignTop);
    refusal->addWidget(m_refusalText, 1);
    m_refusal->hide();
    layout->addWidget(m_refusal);
    auto* buttons = new QDialogButtonBox;
    m_check = new Button(words("Check"));
    buttons->addButton(m_check, QDialogButtonBox::AcceptRole);
    m_check->setDefault(true);
    m_check->setEnabled(false);
    buttons->addButton(new Button(words("Cancel")), QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);
    connect(m_edit, &QPlainTextEdit::textChanged, this, [this] {
        m_check->setEnabled(m_edit->holdsSomething());
        m_refusal->hide();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::accepted, this, [this] { emit submitted(m_edit->source()); });
    m_edit->setFocus();
    window_baseline::giveMnemonics(*this);
    resize(70 * fontMetrics().averageCharWidth(), 26 * fontMetrics().height());
}

void PasteView::refuse(const QString& line) {
    m_refusalText->setContents(line);
    m_refusal->setAccessibleName(line);
    m_refusal->show();
    QAccessibleEvent event(m_refusal, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
}

}  // namespace quillmark
