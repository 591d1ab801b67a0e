// SPDX-License-Identifier: MIT
#include "desktop/tray/sni_types.h"

#include <QDBusMetaType>
#include <QDBusVariant>

namespace desktop::sni {

QDBusArgument& operator<<(QDBusArgument& argument, const Pixmap& pixmap)
{
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.pixels;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, Pixmap& pixmap)
{
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.pixels;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const ToolTip& tip)
{
    argument.beginStructure();
    argument << tip.iconName << tip.pixmaps << tip.title << tip.text;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, ToolTip& tip)
{
    argument.beginStructure();
    argument >> tip.iconName >> tip.pixmaps >> tip.title >> tip.text;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const MenuLayout& layout)
{
    argument.beginStructure();
    argument << layout.id << layout.properties;
    // Children travel as variants, which is what lets the layout nest.
    argument.beginArray(qMetaTypeId<QDBusVariant>());
    for (const auto& child : layout.children) {
        argument << QDBusVariant(QVariant::fromValue(child));
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, MenuLayout& layout)
{
    argument.beginStructure();
    argument >> layout.id >> layout.properties;
    layout.children.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        layout.children.push_back(qdbus_cast<MenuLayout>(child.variant()));
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const MenuProperties& row)
{
    argument.beginStructure();
    argument << row.id << row.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, MenuProperties& row)
{
    argument.beginStructure();
    argument >> row.id >> row.properties;
    argument.endStructure();
    return argument;
}

void registerTypes()
{
    qDBusRegisterMetaType<Pixmap>();
    qDBusRegisterMetaType<Pixmaps>();
    qDBusRegisterMetaType<ToolTip>();
    qDBusRegisterMetaType<MenuLayout>();
    qDBusRegisterMetaType<MenuProperties>();
    qDBusRegisterMetaType<MenuPropertiesList>();
}

} // namespace desktop::sni
