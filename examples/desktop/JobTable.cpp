#include "JobTable.h"

#include "Text.h"

#include <QHeaderView>
#include <QPainter>
#include <QPushButton>
#include <QStyledItemDelegate>
#include <QVBoxLayout>

namespace {

constexpr int Margin = 6;
constexpr int DotSize = 9;
constexpr int ButtonMargin = 2;
constexpr int Unlimited = 10000;

QColor colorOf(const QString &status)
{
    static const QHash<QString, QColor> colors = {{"running", "#1a4fb4"}, {"finished", "#2e9e4f"},
                                                  {"failed", "#d03030"},  {"stopped", "#d98a1f"},
                                                  {"queued", "#8a6fc8"},  {"submitted", "#8a6fc8"}};
    return colors.value(status, QColor("#909090"));
}

class JobDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::paint(painter, option, index);
        painter->save();
        painter->setClipRect(option.rect);
        if (index.column() == Jobs::Progress)
            paintProgress(painter, option, index.data(Jobs::PercentRole).toInt());
        else if (index.column() == Jobs::Status)
            paintStatus(painter, option, index);
        painter->restore();
    }

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        const QString error = index.data(Jobs::ErrorRole).toString();
        return {0, errorRect(option, error).bottom() - option.rect.top() + Margin};
    }

    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        option->state &= ~QStyle::State_HasFocus; // rows are selected, not cells
        if (index.column() == Jobs::Status)
            option->text.clear(); // painted beside the dot
    }

private:
    static QRect lineRect(const QStyleOptionViewItem &option)
    {
        return {option.rect.left() + 2 * Margin + DotSize, option.rect.top() + Margin,
                option.rect.width() - 3 * Margin - DotSize, option.fontMetrics.height()};
    }

    /// The area below the line; has no height if there is no error.
    static QRect errorRect(const QStyleOptionViewItem &option, const QString &error)
    {
        const QRect line = lineRect(option);
        const QRect room(line.left(), line.bottom() + 1, line.width(), error.isEmpty() ? 0 : Unlimited);
        return error.isEmpty() ? room : option.fontMetrics.boundingRect(room, Qt::TextWordWrap, error);
    }

    static void paintStatus(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index)
    {
        const bool selected = option.state & QStyle::State_Selected;
        const QString error = index.data(Jobs::ErrorRole).toString();
        QRect line = lineRect(option);
        if (error.isEmpty())
            line.moveCenter({line.center().x(), option.rect.center().y()});
        QRectF dot(0, 0, DotSize, DotSize);
        dot.moveCenter({option.rect.left() + Margin + DotSize / 2.0, line.center().y() + 0.5});
        const QColor ink = option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(Qt::NoPen);
        painter->setBrush(ink);
        if (selected) // the colors of dot and selection may be similar
            painter->drawEllipse(dot.adjusted(-2, -2, 2, 2));
        painter->setBrush(colorOf(index.data(Jobs::StatusRole).toString()));
        painter->drawEllipse(dot);
        painter->setPen(ink);
        painter->drawText(line, Qt::AlignVCenter,
                          option.fontMetrics.elidedText(index.data().toString(), Qt::ElideRight, line.width()));
        if (!selected)
            painter->setPen(errorColor(option.palette));
        painter->drawText(errorRect(option, error), Qt::TextWordWrap, error);
    }

    static void paintProgress(QPainter *painter, const QStyleOptionViewItem &option, int percent)
    {
        if (percent < 0)
            return;
        QStyleOptionProgressBar bar;
        bar.initFrom(option.widget);
        bar.state |= QStyle::State_Horizontal;
        bar.rect.setSize({option.rect.width() - 2 * Margin, option.fontMetrics.height() + Margin / 2});
        bar.rect.moveCenter(option.rect.center());
        bar.maximum = 100;
        bar.progress = percent;
        bar.text = QStringLiteral("%1 %").arg(percent);
        bar.textVisible = true;
        bar.textAlignment = Qt::AlignCenter;
        option.widget->style()->drawControl(QStyle::CE_ProgressBar, &bar, painter, option.widget);
    }
};

} // namespace

JobTable::JobTable(Jobs &jobs)
{
    setModel(&jobs);
    setItemDelegate(new JobDelegate(this));
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    setShowGrid(false);
    setAlternatingRowColors(true);
    verticalHeader()->hide();
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionResizeMode(Jobs::Name, QHeaderView::Stretch);
    horizontalHeader()->setSectionResizeMode(Jobs::Status, QHeaderView::Stretch);
    const int letter = fontMetrics().averageCharWidth();
    setColumnWidth(Jobs::Progress, 24 * letter);
    setColumnWidth(Jobs::Submitted, 22 * letter);
    setColumnWidth(Jobs::Action, 16 * letter);

    connect(&jobs, &Jobs::dataChanged, this, [this](const QModelIndex &changed) {
        if (changed.column() == Jobs::Action)
            updateButton(changed);
        else if (changed.column() == Jobs::Status)
            resizeRowToContents(changed.row());
    });
    // Queued, because the header reports a stretched column before it has its new width.
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, &QTableView::resizeRowsToContents,
            Qt::QueuedConnection);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, &JobTable::selectedChanged);
}

QString JobTable::selected(int role) const
{
    const QModelIndexList rows = selectionModel()->selectedRows(Jobs::Name);
    return rows.isEmpty() ? QString() : rows.first().data(role).toString();
}

void JobTable::updateButton(const QModelIndex &place)
{
    const QString label = place.data(Jobs::ActionRole).toString();
    if (label.isEmpty())
        return setIndexWidget(place, nullptr);
    QWidget *cell = indexWidget(place);
    if (!cell) {
        cell = new QWidget;
        auto *button = new QPushButton;
        auto *layout = new QVBoxLayout(cell);
        layout->setContentsMargins(ButtonMargin, ButtonMargin, ButtonMargin, ButtonMargin);
        layout->addWidget(button);
        setIndexWidget(place, cell);
        // The button belongs to its own job, also when the row moves or another one is selected.
        connect(button, &QPushButton::clicked, this, [this, place = QPersistentModelIndex(place)] {
            emit stopWanted(place.sibling(place.row(), Jobs::Name));
        });
    }
    auto *button = cell->findChild<QPushButton *>();
    button->setText(label);
    button->setEnabled(place.flags() & Qt::ItemIsEnabled);
}
