#pragma once

// What the tests of the window need; compiled once for all of them.

#include <gtest/gtest.h>

#include <QtTest>
#include <QtWidgets>
#include <map>
#include <set>

namespace quillmark::test {

/// The button that reads so, or is called so where it shows a picture, and one that is seen before one that
/// isn't; a failure, and none, where there is no such button.
inline QAbstractButton* button(const QWidget& in, const QString& name) {
    QAbstractButton* found = nullptr;
    for (QAbstractButton* each : in.findChildren<QAbstractButton*>()) {
        const bool isNamed = each->text().remove(u'&') == name || each->accessibleName() == name;
        if (isNamed && (!found || !found->isVisible())) found = each;
    }
    EXPECT_TRUE(found) << "no button " << name.toStdString();
    return found;
}

}  // namespace quillmark::test
