#pragma once

#include <QString>
#include <QTimer>
#include <optional>
#include <set>
#include <vector>

#include "Quillmark/Panels.h"
#include "Quillmark/Session.h"
#include "Quillmark/Words.h"
#include "Wording/Totals.h"

namespace quillmark {

/// Reports that are looked at together: those of a mailbox or folder, or what was chosen.
struct MailboxContent {
    QString title;
    QString state;  ///< whether these are all of it
    std::vector<std::shared_ptr<const ProofReport>> reports;
    bool isWhole = true;     ///< else there are more in it, which weren't checked
    bool isGrowing = false;  ///< its check goes on
};

/// Many reports on one page: how many have which tone, those that need a look first, and pictures by year and
/// by signing domain. What they come to is counted in turns of the event loop, so that the window never
/// waits.
class MailboxView : public Scroller {
    Q_OBJECT
public:
    explicit MailboxView(const Words& words, QWidget* parent = nullptr);

    /// What was shown stays until the new one is counted. One that comes meanwhile waits for its turn.
    void setContent(MailboxContent content);
    /// Whether everything is counted and shown.
    bool isComplete() const { return !m_next.isActive(); }
    void focusHead();

signals:
    void reportWanted(const quillmark::UUID& id);
    void tonesWanted(const std::set<quillmark::Tone>& tones);  ///< to see these alone in the list
    /// Something else is shown that stays so: its totals, for those who hear them.
    void counted(const QString& spoken);

protected:
    void changeEvent(QEvent* event) override;

private:
    struct Seen {
        std::size_t place = 0;  // among the reports
        bool hasCautions = false;
    };
    void goOn();
    void rebuild();
    QWidget* head();
    QWidget* worst();
    QWidget* bars(const QString& heading, std::vector<TotalsRow> rows);
    bool isWorse(const Seen& a, const Seen& b) const;

    const Words m_words;
    QWidget* m_head = nullptr;
    MailboxContent m_content;
    std::optional<MailboxContent> m_waiting = {};
    std::size_t m_counted = 0;
    Totals m_totals;
    std::vector<Seen> m_seen;  // what isn't just good
    QTimer m_next;
    bool m_isBuilding = false;
};

}  // namespace quillmark
