#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class UserDefaults;

// Whether the file managers' "Hide with Trovix" entries are on: the user's choice (stored), applied and
// asked of the plug-in tool, and reconciled with what the tool reports at each start.
class FinderIntegration
{
public:
    // The tool is run as PROGRAM ARGUMENTS... followed by its own arguments.
    FinderIntegration(UserDefaults& defaults, QString program, QStringList arguments);

    // The preferences checkbox, when one is shown: set to 1 (on) or 0 (off) as the choice is applied.
    void setCheckbox(std::function<void(int)> checkbox) { m_checkbox = std::move(checkbox); }

    // At start: the first start turns the entries on; later starts take what the tool reports over the
    // stored choice. Either way the tool is run, so key, checkbox and files end up agreeing.
    void finderIntegration();
    // Asks the tool, after the runs still under way have ended; blocks until it prints (or ends). The
    // second value is always empty.
    void getHinderIntegrationEnabledWithCompletion(const std::function<void(bool enabled, const QString&)>& completion);
    // Not waited for: the tool runs in the background, each run after the one before it.
    void enableFinderSyncExtension();
    void disableFinderSyncExtension();
    void toggleFinderIntegration(int state);

private:
    void apply(bool enabled);
    void run(const QStringList& arguments);

    // Runs of the tool one after the other, shared by copies of this object and alive while a run is.
    struct Sequence;

    UserDefaults& m_defaults;
    QString m_program;
    QStringList m_arguments;
    std::function<void(int)> m_checkbox;
    std::shared_ptr<Sequence> m_sequence;
};
