#include "Quillmark/Explanation.h"

#include <QBoxLayout>
#include <QGuiApplication>

#include "Quillmark/Panels.h"
#include "Quillmark/PlainText.h"

namespace quillmark {

QToolButton* disclosureButton(const QString& text, const QString& accessibleName) {
    auto* made = new QToolButton;
    makeDisclosure(*made);  // before anybody asks what it is
    made->setText(text);
    made->setAccessibleName(accessibleName);
    made->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    const auto closed = QGuiApplication::isRightToLeft() ? Qt::LeftArrow : Qt::RightArrow;
    made->setArrowType(closed);
    made->setAutoRaise(true);
    made->setCheckable(true);
    made->setFocusPolicy(Qt::StrongFocus);
    QObject::connect(made, &QToolButton::toggled, made,
                     [made, closed](bool open) { made->setArrowType(open ? Qt::DownArrow : closed); });
    return made;
}

ExplainButton::ExplainButton(const QString& name, const GlossaryEntry& entry, QStringList raw,
                             const Words& words, QWidget* parent)
    : QToolButton(parent), m_entry(entry), m_raw(std::move(raw)), m_words(words) {
    setObjectName(QStringLiteral("explain"));
    setText(QStringLiteral("?"));
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(m_words("Explain: %1", name));
    setToolTip(m_words("Explain: %1", name));
}

QWidget* ExplainButton::explanation() const {
    auto* card = new Card;
    auto* lines = new QVBoxLayout(card);
    const QString text = QString::fromStdString(m_entry.textIn(m_words.reader));
    card->setAccessibleName(text);
    lines->addWidget(new PlainText(text));
    auto* more =
        disclosureButton(m_words("More exactly"),
                         m_words("More exactly: %1", QString::fromStdString(m_entry.wordIn(m_words.reader))));
    lines->addWidget(more, 0, Qt::AlignLeft);
    auto* deeper = new QWidget;
    auto* below = new QVBoxLayout(deeper);
    below->setContentsMargins(0, 0, 0, 0);
    const std::string source(m_entry.source);
    if (!source.empty())
        below->addWidget(new PlainText(m_words("Defined in %1.", QString::fromStdString(source))));
    if (!m_raw.isEmpty()) {
        below->addWidget(new PlainText(m_words("As it stands in the message and in DNS:")));
        for (const QString& line : m_raw) {
            auto* raw = new PlainText(line);
            raw->followDirectionOfLines();
            below->addWidget(raw);
        }
    }
    deeper->hide();
    lines->addWidget(deeper);
    QObject::connect(more, &QToolButton::toggled, deeper, &QWidget::setVisible);
    return card;
}

}  // namespace quillmark
