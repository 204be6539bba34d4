#pragma once

#include "diskusage/SearcherManager.h"

#include <QWidget>

class QLabel;
class QPushButton;

// One category's detail page: its title, its figures, a review button (the found files in the results
// window) and a button for a desktop tool that deals with the category. The companion products of the
// Mac edition do not exist here; the tool button names an installed Linux tool where there is one and
// is hidden otherwise.
class AdBasedOnSpotlightView : public QWidget
{
    Q_OBJECT
public:
    // The product types of the launch-and-scan handshake.
    enum Type { JunkFiles = 1, ApplicationsUnused = 2, LargeAndOldFiles = 3, DuplicateFiles = 4 };

    explicit AdBasedOnSpotlightView(Type type, QWidget* parent = nullptr);

    int getType() const { return m_type; }
    bool isCanShow() const { return m_canShow; }
    QString title() const;

    void setJunkInfo(const JunkFilesViewInfo& info);
    // For the three count-and-size categories; verified figures only for duplicates.
    void setCountAndSize(quint64 count, quint64 size, const DuplicateFilesViewInfo* duplicates = nullptr);

    // The installed tool for this category, looked for on PATH now: its display name and program;
    // empty when there is none.
    static std::pair<QString, QString> installedTool(Type type);

signals:
    void backButtonPressed();
    void reviewButtonPressed();

protected:
    void showEvent(QShowEvent* event) override;

private:
    void updateToolButton();

    Type m_type;
    bool m_canShow = false;
    QLabel* m_title = nullptr;
    QLabel* m_first = nullptr;
    QLabel* m_second = nullptr;
    QLabel* m_third = nullptr;
    QLabel* m_total = nullptr;
    QPushButton* m_reviewButton = nullptr;
    QPushButton* m_toolButton = nullptr;
    QString m_toolProgram;
};
