#pragma once

#include "diskusage/SearcherManager.h"

#include <QWidget>

class QLabel;
class QPushButton;

// One category's detail page: its title, its figures and a button for a tool that deals with it. The
// companion products of the Mac edition do not exist here; the button names an installed Linux tool
// where there is one (a disk analyser for large files) and is hidden otherwise.
class AdBasedOnSpotlightView : public QWidget
{
    Q_OBJECT
public:
    // The product types of the launch-and-scan handshake.
    enum Type { JunkFiles = 1, ApplicationsUnused = 2, LargeAndOldFiles = 3, DuplicateFiles = 4 };

    explicit AdBasedOnSpotlightView(Type type, QWidget* parent = nullptr);

    int getType() const { return m_type; }
    bool isCanShow() const { return m_canShow; }

    void setJunkInfo(const JunkFilesViewInfo& info);
    // For the three count-and-size categories; verified figures only for duplicates.
    void setCountAndSize(quint64 count, quint64 size, const DuplicateFilesViewInfo* duplicates = nullptr);

    // The installed tool for this category: its display name and command; empty when there is none.
    static std::pair<QString, QString> installedTool(Type type);

signals:
    void backButtonPressed();

private:
    Type m_type;
    bool m_canShow = false;
    QLabel* m_first = nullptr;
    QLabel* m_second = nullptr;
    QLabel* m_third = nullptr;
    QLabel* m_total = nullptr;
    QPushButton* m_toolButton = nullptr;
};
