// Does in the example's windows what a user would do, against the portal that VELMORA_API_URL names.

#include "MainWindow.h"

#include <QtTest>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkReply>
#include <QPushButton>

#include <set>

class Drive : public QObject {
    Q_OBJECT

    void control(const QString &path, const QJsonObject &body)
    {
        QNetworkRequest request(QUrl(QStringLiteral("https://%1/control/%2").arg(m_host, path)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        QNetworkReply *reply = m_network.post(request, QJsonDocument(body).toJson());
        QTRY_VERIFY(reply->isFinished());
        QCOMPARE(reply->error(), QNetworkReply::NoError);
    }

    void refuseOnce(const QString &path)
    {
        control("faults",
                {{"kind", "status"}, {"path", path}, {"status", 503}, {"body", R"({"message": "Maintenance"})"}});
    }

    QString write(const QString &name, const QByteArray &bytes)
    {
        QFile file(m_folder.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName() : QString();
    }

    static void enter(QWidget &dialog, const char *field, const QString &text)
    {
        auto *edit = dialog.findChild<QLineEdit *>(field);
        edit->clear();
        QTest::keyClicks(edit, text);
        QTest::keyClick(edit, Qt::Key_Return);
    }

    static void agree() // to the next question
    {
        QTimer::singleShot(0, [] { QApplication::activeModalWidget()->findChild<QPushButton *>("yes")->click(); });
    }

    QVariant cell(int row, int column, int role = Qt::DisplayRole) const
    {
        return m_jobs->index(row, column).data(role);
    }
    QPushButton *stopButton() const // of the newest job
    {
        return qobject_cast<QPushButton *>(m_table->indexWidget(m_jobs->index(0, Jobs::Action)));
    }
    QList<TaskRow *> tasks() const { return m_window.findChildren<TaskRow *>(); }
    static QString errorOf(QWidget *place) { return place->findChild<QLabel *>("error")->text(); }

    void startBeam()
    {
        QVERIFY(!write("beam.trninp", m_input).isEmpty());
        m_window.startJob(write("beam.json", R"({"jobName": "Beam", "mainFile": "beam.trninp", "solverTag": " ",
            "operation": 0, "numberOfParts": 4, "ramEstimate": 1024, "coreHourEstimate": 0.5, "simulations": ["-x 1"]})"));
    }

    const QString m_host = qEnvironmentVariable("VELMORA_API_URL");
    const QByteArray m_input = QByteArray("beam\n").repeated(200000);
    QNetworkAccessManager m_network;
    QTemporaryDir m_folder;
    MainWindow m_window;
    QTableView *m_table = m_window.findChild<QTableView *>("jobs");
    QAbstractItemModel *m_jobs = m_table->model();

private slots:
    void signInShowsWhatIsWrong()
    {
        m_window.show();
        m_window.signIn();
        auto *dialog = m_window.findChild<SignInDialog *>();
        auto *error = dialog->findChild<QLabel *>("error");
        auto *signIn = dialog->findChild<QPushButton *>("signIn");
        enter(*dialog, "password", "wrong");
        QVERIFY(!signIn->isEnabled());
        QTRY_COMPARE(error->text(), QString("The e-mail address or the password is wrong"));
        QVERIFY(error->isVisible() && signIn->isEnabled() && signIn->isDefault());
        dialog->findChild<QLineEdit *>("portal")->setText("127.0.0.1:1");
        enter(*dialog, "password", qEnvironmentVariable("VELMORA_PASSWORD"));
        QTRY_VERIFY(error->text().startsWith("No connection"));
        enter(*dialog, "portal", m_host);
        QTRY_COMPARE(m_jobs->rowCount(), 2);
        QVERIFY(!dialog->isVisible());
        QVERIFY(cell(1, Jobs::Name).toString().startsWith("Wing"));
        QCOMPARE(cell(1, Jobs::Status).toString(), QString("Finished"));
    }

    void aSecondFactorIsAskedFor()
    {
        MainWindow window;
        window.signIn();
        auto *dialog = window.findChild<SignInDialog *>();
        auto *mfa = dialog->findChild<QLineEdit *>("mfa");
        dialog->findChild<QLineEdit *>("user")->setText("ben.stone@velmora.example");
        QVERIFY(!mfa->isVisible());
        enter(*dialog, "password", "boundary-layer-7");
        QTRY_VERIFY(mfa->isVisible() && mfa->isEnabled());
        enter(*dialog, "mfa", "246 810");
        QTRY_COMPARE(window.findChild<QTableView *>("jobs")->model()->rowCount(), 1);
    }

    void aJobRunsAndItsFilesComeBack()
    {
        m_window.startJob(write("bad.json", "{}"));
        QTRY_VERIFY(errorOf(tasks().last()).count('\n') > 3);
        control("jobs", {{"duration", 2000}});
        std::set<int> seen;
        connect(m_jobs, &QAbstractItemModel::dataChanged, this,
                [&] { seen.insert(cell(0, Jobs::Progress, Jobs::PercentRole).toInt()); });
        refuseOnce("job/submit");
        startBeam();
        TaskRow *task = tasks().at(1);
        QTRY_COMPARE(errorOf(task), QString("Maintenance"));
        task->findChild<QPushButton *>()->click();
        QTRY_COMPARE(m_jobs->rowCount(), 3);
        QTRY_COMPARE(cell(0, Jobs::Status).toString(), QString("Finished"));
        QVERIFY2(std::distance(seen.upper_bound(0), seen.lower_bound(100)) > 3, "no live progress");
        disconnect(m_jobs, nullptr, this, nullptr);

        auto *transfers = m_window.findChild<TransfersPanel *>();
        transfers->downloadResults(cell(0, Jobs::Name, Jobs::IdRole).toString().toStdString(), "Beam", m_folder.path());
        QTRY_COMPARE(transfers->activeCount(), 0);
        QFile results(m_folder.filePath("sim-1/results.dat"));
        QVERIFY(results.open(QIODevice::ReadOnly));
        results.readLine(); // names and sums
        QVERIFY(results.readAll() == m_input);
    }

    void aFailedStopIsTriedAgainInItsRow()
    {
        control("jobs", {{"duration", 600000}});
        startBeam();
        QTRY_COMPARE(m_jobs->rowCount(), 4);
        refuseOnce("job/stop");
        agree();
        stopButton()->click();
        QTRY_COMPARE(cell(0, Jobs::Status, Jobs::ErrorRole).toString(), QString("Could not be stopped: Maintenance"));
        m_table->selectRow(2); // another job
        QCOMPARE(stopButton()->text(), QString("Try Again"));
        stopButton()->click();
        QTRY_COMPARE(cell(0, Jobs::Status).toString(), QString("Stopped"));
        QCOMPARE(cell(2, Jobs::Status).toString(), QString("Archived"));
        QTRY_VERIFY(!stopButton());
    }

    void closingAsksForTransfers()
    {
        auto *transfers = m_window.findChild<TransfersPanel *>();
        const std::string job = cell(0, Jobs::Name, Jobs::IdRole).toString().toStdString();
        control("faults", {{"kind", "silence"}, {"path", "storage"}});
        transfers->upload(job, {m_folder.filePath("beam.trninp"), m_folder.filePath("missing.dat")});
        QTRY_VERIFY(errorOf(tasks().last()).contains("missing.dat"));
        agree();
        QVERIFY(m_window.close());
        QCOMPARE(transfers->activeCount(), 0);
        QCOMPARE(tasks().at(tasks().size() - 2)->findChild<QLabel *>("phase")->text(), QString("Cancelled"));
    }
};

QTEST_MAIN(Drive)
#include "drive.moc"
