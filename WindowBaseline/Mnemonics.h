#pragma once

#include <QString>
#include <QStringList>

class QMenu;
class QWidget;

namespace window_baseline {

/// Texts with a letter marked by "&" in each, by which it is reached with Alt. Those that have one keep it;
/// the others get one that no other has: the first letter of a word where that is free, else any. Chinese and
/// Japanese get one behind the text. What all letters of are taken, or what has none, stays without. `taken`:
/// letters that are not free.
QStringList withMnemonics(const QStringList& texts, const QString& taken = {});

/// Gives one to each entry of a menu and its submenus. An entry that is in two menus has the same in both.
void giveMnemonics(QMenu& menu);
/// To each button in a window that has a text of its own, beside those of its menu bar. Of several that read
/// the same, the first alone has one: with two, the key would press neither.
void giveMnemonics(QWidget& window);

}  // namespace window_baseline
