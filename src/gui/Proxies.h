// The generic bridge from kit objects to QML: a ViewProxy mirrors one view (or constraint),
// an OutletsProxy one screen or cell with its outlets by name, a ListModel one table or
// collection. Proxies live on the GUI thread, which is the kit's main thread, and follow the
// kit objects through their property observers.
#pragma once

#include <QAbstractListModel>
#include <QColor>
#include <QObject>
#include <QQmlPropertyMap>
#include <QString>
#include <QVariantList>

#include <map>
#include <memory>

#include "kit/Lists.h"
#include "kit/Outlets.h"
#include "kit/ViewController.h"

namespace gui {

class ListModel;

class ViewProxy : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString kind READ kind CONSTANT)
  Q_PROPERTY(bool hidden READ hidden NOTIFY changed)
  Q_PROPERTY(double alpha READ alpha NOTIFY changed)
  Q_PROPERTY(bool enabled READ enabled NOTIFY changed)
  Q_PROPERTY(bool selected READ selected NOTIFY changed)
  Q_PROPERTY(bool interactive READ interactive NOTIFY changed)
  Q_PROPERTY(QString text READ text NOTIFY changed)
  Q_PROPERTY(QString placeholder READ placeholder NOTIFY changed)
  Q_PROPERTY(QString title READ title NOTIFY changed)
  Q_PROPERTY(QString image READ image NOTIFY changed)
  Q_PROPERTY(QString backgroundImage READ backgroundImage NOTIFY changed)
  Q_PROPERTY(QColor backgroundColor READ backgroundColor NOTIFY changed)
  Q_PROPERTY(QColor tintColor READ tintColor NOTIFY changed)
  Q_PROPERTY(QColor textColor READ textColor NOTIFY changed)
  Q_PROPERTY(QColor borderColor READ borderColor NOTIFY changed)
  Q_PROPERTY(double borderWidth READ borderWidth NOTIFY changed)
  Q_PROPERTY(double cornerRadius READ cornerRadius NOTIFY changed)
  Q_PROPERTY(double scale READ scale NOTIFY changed)
  Q_PROPERTY(QVariantMap transformAnimation READ transformAnimation NOTIFY changed)
  Q_PROPERTY(bool on READ on NOTIFY changed)
  Q_PROPERTY(bool secure READ secure NOTIFY changed)
  Q_PROPERTY(int numberOfLines READ numberOfLines NOTIFY changed)
  Q_PROPERTY(QString animationName READ animationName NOTIFY changed)
  Q_PROPERTY(bool playing READ playing NOTIFY changed)
  Q_PROPERTY(bool looping READ looping NOTIFY changed)
  Q_PROPERTY(double constant READ constant NOTIFY changed)
  Q_PROPERTY(QObject* model READ model CONSTANT)
  Q_PROPERTY(QVariantList subviews READ subviews NOTIFY changed)

 public:
  // Mirrors `object` (a kit::View or kit::LayoutConstraint).
  explicit ViewProxy(std::shared_ptr<kit::Object> object, QObject* parent = nullptr);
  ~ViewProxy() override;

  QString kind() const { return kind_; }
  bool hidden() const;
  double alpha() const;
  bool enabled() const;
  bool selected() const;
  bool interactive() const;
  QString text() const;
  QString placeholder() const;
  QString title() const;
  QString image() const;
  QString backgroundImage() const;
  QColor backgroundColor() const;
  QColor tintColor() const;
  QColor textColor() const;
  QColor borderColor() const;
  double borderWidth() const;
  double cornerRadius() const;
  double scale() const;
  // The view's last spring animation: serial (0: none), fromX, fromY (points of translation),
  // duration and delay (seconds), damping, initialVelocity.
  QVariantMap transformAnimation() const;
  bool on() const;
  bool secure() const;
  int numberOfLines() const;
  QString animationName() const;
  bool playing() const;
  bool looping() const;
  double constant() const;
  QObject* model() const;
  // Proxies of the view's subviews, in order (made on first use).
  QVariantList subviews() const;

  // A user's tap (buttons, tap recognizers); false when the view cannot take it.
  Q_INVOKABLE bool tap();
  // A user's toggle of a switch.
  Q_INVOKABLE bool toggle();
  // Typing into a text field, or editing a search bar.
  Q_INVOKABLE void type(const QString& text);
  Q_INVOKABLE void pressReturn();
  // A keyboard's edit of a text field that leaves `text` in it (typing, deleting, pasting):
  // the field takes the text and sends EditingChanged.
  Q_INVOKABLE void edit(const QString& text);
  // A long press reported by the renderer.
  Q_INVOKABLE bool longPress(int state, double x, double y);

  const std::shared_ptr<kit::Object>& object() const { return object_; }

 signals:
  // The view changed. Changes made in one turn of the event loop come as one signal, in the
  // next turn: a screen that rewrites a label many times over in one task costs QML one
  // update.
  void changed();

 private:
  void scheduleChanged();

  std::shared_ptr<kit::Object> object_;
  bool changePending_ = false;
  kit::Observable* observable_ = nullptr;
  int token_ = 0;
  QString kind_;
  ListModel* model_ = nullptr;
  mutable std::map<const kit::Object*, ViewProxy*> children_;
};

// A screen or a cell: its outlets by name (ViewProxy objects), and for a screen its actions.
class OutletsProxy : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString identifier READ identifier CONSTANT)
  Q_PROPERTY(QString title READ title NOTIFY changed)
  Q_PROPERTY(QObject* outlets READ outlets CONSTANT)
  Q_PROPERTY(QString kind READ kind CONSTANT)

 public:
  // A screen; its view is loaded first.
  explicit OutletsProxy(std::shared_ptr<kit::ViewController> controller, QObject* parent = nullptr);
  // A cell.
  explicit OutletsProxy(std::shared_ptr<kit::ListCell> cell, QObject* parent = nullptr);

  QString identifier() const { return identifier_; }
  QString title() const;
  QObject* outlets() const { return outlets_; }
  // "screen", "alert" or "cell".
  QString kind() const { return kind_; }

  // Runs the controller's action `name`; false when it has none.
  Q_INVOKABLE bool invoke(const QString& name);
  // Taps the outlet `name`.
  Q_INVOKABLE bool tap(const QString& name);
  // The outlet `name`'s proxy, or null.
  Q_INVOKABLE QObject* outlet(const QString& name) const;

  const std::shared_ptr<kit::ViewController>& controller() const { return controller_; }

 signals:
  void changed();

 private:
  void mirror(kit::OutletContainer& container);

  std::shared_ptr<kit::ViewController> controller_;
  std::shared_ptr<kit::ListCell> cell_;
  QString identifier_;
  QString kind_;
  QQmlPropertyMap* outlets_;
  int token_ = 0;
};

// A table or collection as a flat list of items (sections one after another). An item's "cell"
// is its cell's OutletsProxy while the kit shows it (the visible window), null otherwise; QML
// reports what it shows with setVisibleRange. A reload becomes rows inserted or removed at the
// end and a data change over the rows of the window (before and after), so its cost to QML
// follows the rows on screen, not the length of the list.
class ListModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  enum Roles { CellRole = Qt::UserRole + 1, SectionRole, ItemRole, HeightRole, WidthRole };

  explicit ListModel(std::shared_ptr<kit::ListView> list, QObject* parent = nullptr);
  ~ListModel() override;

  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;
  int count() const { return rowCount(); }

  // The items the renderer shows; the kit asks its data source for their cells.
  Q_INVOKABLE void setVisibleRange(int first, int count);
  // A user's tap on an item (row selection or collection selection).
  Q_INVOKABLE void select(int row);

 signals:
  void countChanged();

 private:
  void refresh();
  kit::IndexPath pathOf(int row) const;
  OutletsProxy* proxyFor(const std::shared_ptr<kit::ListCell>& cell) const;

  std::shared_ptr<kit::ListView> list_;
  int token_ = 0;
  std::vector<int> counts_;
  std::vector<int> starts_;  // the flat row of each section's first item
  int total_ = 0;
  int windowFirst_ = 0, windowEnd_ = 0;  // the kit's window when last told to QML
  mutable std::map<const kit::ListCell*, OutletsProxy*> cells_;
};

}  // namespace gui
