#pragma once

#include <QByteArray>
#include <QFutureWatcher>
#include <QImage>
#include <QString>
#include <QWidget>

#include <atomic>
#include <memory>

class QLabel;
class QPlainTextEdit;
class QStackedWidget;
class QToolButton;
class QuickLookController;

// What the preview shows for one file, read on a worker thread.
struct PreviewContent
{
    enum class Kind
    {
        None,
        Image,
        Text,
        Folder,
        Info
    };
    Kind kind = Kind::None;
    QImage image;         // Image: already scaled to fit
    QString text;         // Text: the first 64 KiB, invalid UTF-8 replaced
    qint64 itemCount = 0; // Folder: entries directly inside
    qint64 totalSize = 0; // Folder: bytes of every file below; Info: the file's size
    QString mimeType;
    QString mimeComment;
    bool readable = true;

    static constexpr qint64 kTextLimit = 64 * 1024;
    // Works out what to show; stop ends a folder sum early.
    static PreviewContent load(const QByteArray& path, QSize fit, const std::atomic<bool>& stop);
};

// The program's preview window: one file at a time from the controller's list, paged with the arrow
// keys or the two buttons. Images are scaled to fit, text files shown as text, folders as item count and
// size, anything else as icon, kind, size and dates. Space and Escape close it.
class QuickLookPanel : public QWidget
{
    Q_OBJECT
public:
    explicit QuickLookPanel(QuickLookController& controller, QWidget* parent = nullptr);
    ~QuickLookPanel() override;

    // Starts again at the first item of the controller's list.
    void reloadData();
    int currentIndex() const { return m_index; }
    void setCurrentIndex(int index);
    void showNext() { setCurrentIndex(m_index + 1); }
    void showPrevious() { setCurrentIndex(m_index - 1); }
    // What is on screen now (None while it is being read).
    PreviewContent::Kind shownKind() const { return m_shownKind; }
    QString shownTitle() const;

Q_SIGNALS:
    void contentShown();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void load();
    void showContent(const PreviewContent& content);
    void stopLoading();

    QuickLookController& m_controller;
    int m_index = 0;
    PreviewContent::Kind m_shownKind = PreviewContent::Kind::None;
    QLabel* m_title = nullptr;
    QLabel* m_position = nullptr;
    QToolButton* m_previous = nullptr;
    QToolButton* m_next = nullptr;
    QStackedWidget* m_stack = nullptr;
    QLabel* m_imageView = nullptr;
    QPlainTextEdit* m_textView = nullptr;
    QLabel* m_infoIcon = nullptr;
    QLabel* m_infoText = nullptr;
    QFutureWatcher<PreviewContent>* m_watcher = nullptr;
    std::shared_ptr<std::atomic<bool>> m_stop;
    QByteArray m_loadingPath;
};
