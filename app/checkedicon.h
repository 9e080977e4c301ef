// Icons that show whether their checkable action is checked.
#pragma once

#include <QIcon>

// `icon` with an On state of its own: the same picture on a highlighted, framed square. Menus
// draw a checkable action that has an icon with the icon instead of a check mark, and in the
// state the action is in; an icon without an On picture looks the same checked and unchecked.
QIcon WithCheckedState(const QIcon& icon);
