// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

#include <vector>

namespace desktop::sni {

// One picture of an item: width, height and ARGB32 pixels in network byte order.
struct Pixmap
{
    int width = 0;
    int height = 0;
    QByteArray pixels;
};
using Pixmaps = QList<Pixmap>;

struct ToolTip
{
    QString iconName;
    Pixmaps pixmaps;
    QString title;
    QString text;
};

// A menu row with its rows below it, as GetLayout sends it.
struct MenuLayout
{
    int id = 0;
    QVariantMap properties;
    std::vector<MenuLayout> children;
};

// A row's properties alone, as GetGroupProperties sends them.
struct MenuProperties
{
    int id = 0;
    QVariantMap properties;
};
using MenuPropertiesList = QList<MenuProperties>;

QDBusArgument& operator<<(QDBusArgument& argument, const Pixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, Pixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const ToolTip& tip);
const QDBusArgument& operator>>(const QDBusArgument& argument, ToolTip& tip);
QDBusArgument& operator<<(QDBusArgument& argument, const MenuLayout& layout);
const QDBusArgument& operator>>(const QDBusArgument& argument, MenuLayout& layout);
QDBusArgument& operator<<(QDBusArgument& argument, const MenuProperties& row);
const QDBusArgument& operator>>(const QDBusArgument& argument, MenuProperties& row);

// Makes the types above known to QtDBus; once per process is enough, more is harmless.
void registerTypes();

} // namespace desktop::sni

Q_DECLARE_METATYPE(desktop::sni::Pixmap)
Q_DECLARE_METATYPE(desktop::sni::ToolTip)
Q_DECLARE_METATYPE(desktop::sni::MenuLayout)
Q_DECLARE_METATYPE(desktop::sni::MenuProperties)
