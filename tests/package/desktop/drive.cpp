// Acts as a user in the example's windows, against the portal that VELMORA_API_URL names.

#include "MainWindow.h"

#include <QtNetwork>
#include <QtTest>
#include <QtWidgets>

#include <set>

class Drive : public QObject {
    Q_OBJECT

    void control(const QString &path, const QJsonObject &body)
    {
        QNetworkRequest request(QUrl(QStringLiteral("https://%1/control/%2").arg(m_host, path)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/json");
        QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
        trusting.addCaCertificates(qEnvironmentVariable("VELMORA_CA"));
        request.setSslConfiguration(trusting);
        QNetworkReply *reply = m_network.post(request, QJsonDocument(body).toJson());
        QTRY_VERIFY(reply->isFinished());
        QCOMPARE(reply->error(), QNetworkReply::NoError);
    }
    void fault(const QString &path, const QString &kind = "status")
    {
        control("faults", {{"kind", kind}, {"path", path}, {"status", 503}, {"body", R"({"message": "Maintenance"})"}});
    }
    QString write(const QString &name, const QByteArray &bytes)
    {
        QFile file(m_folder.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() ? file.fileName() : QString();
    }
    void startBeam()
    {
        QVERIFY(!write("beam.trninp", m_input).isEmpty());
        m_window.startJob(write("beam.json", R"({"jobName": "Beam", "mainFile": "beam.trninp", "solverTag": " ",
            "operation": 0, "numberOfParts": 4, "ramEstimate": 1024, "coreHourEstimate": 0.5, "simulations": ["-x 1"]})"));
    }
    void enter(const char *field, const QString &text, bool confirm = true)
    {
        auto *edit = m_dialog->findChild<QLineEdit *>(field);
        edit->selectAll();
        QTest::keyClicks(edit, text);
        if (confirm)
            QTest::keyClick(edit, Qt::Key_Return);
    }
    static void agree() // to the next question
    {
        QTimer::singleShot(0, [] { QApplication::activeModalWidget()->findChild<QPushButton *>("yes")->click(); });
    }
    QVariant cell(int row, int column, int role = 0) const { return m_jobs->index(row, column).data(role); }
    std::string newestJob() const { return cell(0, Jobs::Name, Jobs::IdRole).toString().toStdString(); }
    QPushButton *button() const { return m_table->findChild<QPushButton *>(); } // the one job's that runs
    QList<TaskRow *> tasks() const { return m_window.findChildren<TaskRow *>(); }
    static QString errorOf(QWidget *place) { return place->findChild<QLabel *>("error")->text(); }

    const QString m_host = qEnvironmentVariable("VELMORA_API_URL");
    const QByteArray m_input = QByteArray("beam\n").repeated(200000);
    QNetworkAccessManager m_network;
    QTemporaryDir m_folder;
    MainWindow m_window;
    SignInDialog *m_dialog = m_window.findChild<SignInDialog *>();
    TransfersPanel *m_transfers = m_window.findChild<TransfersPanel *>();
    JobTable *m_table = m_window.findChild<JobTable *>();
    QAbstractItemModel *m_jobs = m_table->model();

private slots:
    void signIn_everyOutcome_isShown()
    {
        m_window.show();
        m_window.signIn();
        auto *signIn = m_dialog->findChild<QPushButton *>("signIn");
        enter("password", "wrong");
        QVERIFY(!signIn->isEnabled());
        QTRY_COMPARE(errorOf(m_dialog), QString("The e-mail address or the password is wrong"));
        QVERIFY(m_dialog->findChild<QLabel *>("error")->isVisible() && signIn->isEnabled() && signIn->isDefault());
        enter("portal", "127.0.0.1:1");
        QTRY_VERIFY(errorOf(m_dialog).startsWith("No connection"));

        enter("portal", m_host, false);
        enter("user", "ben.stone@velmora.example", false);
        QVERIFY(!m_dialog->findChild<QLineEdit *>("mfa")->isVisible());
        enter("password", "boundary-layer-7");
        QTRY_VERIFY(m_dialog->findChild<QLineEdit *>("mfa")->isVisible() && signIn->isEnabled());
        enter("mfa", "246 810");
        QTRY_COMPARE(m_jobs->rowCount(), 1);
        QVERIFY(!m_dialog->isVisible());

        m_window.signIn();
        enter("user", qEnvironmentVariable("VELMORA_USER"), false);
        enter("password", qEnvironmentVariable("VELMORA_PASSWORD"));
        QTRY_COMPARE(m_jobs->rowCount(), 2);
        QVERIFY(cell(1, Jobs::Name).toString().startsWith("Wing"));
        QCOMPARE(cell(1, Jobs::Status).toString(), QString("Finished"));
    }

    void job_submitted_runsAndItsFilesComeBack()
    {
        m_window.startJob(write("bad.json", "{}"));
        QVERIFY(errorOf(tasks().last()).count('\n') > 3);
        control("jobs", {{"duration", 2000}});
        std::set<int> seen;
        QObject watcher;
        connect(m_jobs, &QAbstractItemModel::dataChanged, &watcher,
                [&] { seen.insert(cell(0, Jobs::Progress, Jobs::PercentRole).toInt()); });
        fault("job/submit");
        startBeam();
        TaskRow *task = tasks().at(1);
        QTRY_COMPARE(errorOf(task), QString("Maintenance"));
        task->findChild<QPushButton *>()->click();
        QTRY_COMPARE(m_jobs->rowCount(), 3);
        QTRY_COMPARE(cell(0, Jobs::Status).toString(), QString("Finished"));
        QVERIFY2(std::distance(seen.upper_bound(0), seen.lower_bound(100)) > 3, "no live progress");

        m_transfers->downloadResults(newestJob(), "Beam", m_folder.path());
        QTRY_COMPARE(m_transfers->activeCount(), 0);
        QFile results(m_folder.filePath("sim-1/results.dat"));
        QVERIFY(results.open(QIODevice::ReadOnly));
        results.readLine(); // names and sums
        QVERIFY(results.readAll() == m_input);
    }

    void stop_failed_isTriedAgainInItsRow()
    {
        control("jobs", {{"duration", 600000}});
        startBeam();
        QTRY_COMPARE(m_jobs->rowCount(), 4);
        fault("job/stop");
        agree();
        button()->click();
        QTRY_COMPARE(cell(0, Jobs::Status, Jobs::ErrorRole).toString(), QString("Could not be stopped: Maintenance"));
        m_table->selectRow(2); // another job
        QCOMPARE(button()->text(), QString("Try Again"));
        button()->click();
        QTRY_COMPARE(cell(0, Jobs::Status).toString(), QString("Stopped"));
        QTRY_VERIFY(!button());
    }

    void close_transfersUnderWay_cancelsThem()
    {
        fault("storage", "silence");
        m_transfers->upload(newestJob(), {m_folder.filePath("beam.trninp"), m_folder.filePath("missing.dat")});
        TaskRow *task = tasks().last();
        QTRY_VERIFY(errorOf(task).contains("missing.dat"));
        agree();
        QVERIFY(m_window.close());
        QCOMPARE(m_transfers->activeCount(), 0);
    }
};

QTEST_MAIN(Drive)
#include "drive.moc"
