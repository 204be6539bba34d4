#pragma once

#include <QSet>
#include <QString>

// The platform's own applications, which the unused-applications list leaves out: the list of bundle
// identifiers kept from the Mac edition, and the core applications of the Linux desktops (file managers,
// terminals, settings, software centres, help), by desktop-file id or Flatpak id. Compared without case.
class BundleExcludeList
{
public:
    static BundleExcludeList& GetInstance();

    // True for an empty identifier, as for one in the list.
    bool isSystemBundleID(const QString& identifier) const;

private:
    BundleExcludeList();
    QSet<QString> m_ids;
};
