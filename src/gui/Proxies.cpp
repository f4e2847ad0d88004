#include "gui/Proxies.h"

#include <algorithm>

#include "gui/ImageRegistry.h"
#include "kit/AlertController.h"
#include "kit/Controls.h"
#include "kit/Dispatch.h"
#include "kit/GestureRecognizer.h"
#include "kit/Views.h"
#include "platform/AdsNetwork.h"

namespace gui {
namespace {

QString qs(const std::optional<std::string>& s) { return s ? QString::fromStdString(*s) : QString(); }

QColor qc(const std::optional<kit::Color>& c, QColor fallback = Qt::transparent) {
  if (!c) return fallback;
  return QColor::fromRgbF(static_cast<float>(c->red), static_cast<float>(c->green), static_cast<float>(c->blue),
                          static_cast<float>(c->alpha));
}

QString kindOf(kit::Object* o) {
  if (dynamic_cast<platform::BannerView*>(o)) return "Banner";
  if (dynamic_cast<kit::Button*>(o)) return "Button";
  if (dynamic_cast<kit::Switch*>(o)) return "Switch";
  if (dynamic_cast<kit::TextField*>(o)) return "TextField";
  if (dynamic_cast<kit::SearchBar*>(o)) return "SearchBar";
  if (dynamic_cast<kit::Label*>(o)) return "Label";
  if (dynamic_cast<kit::ImageView*>(o)) return "ImageView";
  if (dynamic_cast<kit::AnimationView*>(o)) return "AnimationView";
  if (dynamic_cast<kit::TableView*>(o)) return "TableView";
  if (dynamic_cast<kit::CollectionView*>(o)) return "CollectionView";
  if (dynamic_cast<kit::LayoutConstraint*>(o)) return "Constraint";
  return "View";
}

template <class T>
T* as(const std::shared_ptr<kit::Object>& o) {
  return dynamic_cast<T*>(o.get());
}

}  // namespace

// ---- ViewProxy ----

ViewProxy::ViewProxy(std::shared_ptr<kit::Object> object, QObject* parent)
    : QObject(parent), object_(std::move(object)), kind_(kindOf(object_.get())) {
  observable_ = dynamic_cast<kit::Observable*>(object_.get());
  if (observable_) token_ = observable_->addObserver([this](std::string_view) { scheduleChanged(); });
  if (auto list = std::dynamic_pointer_cast<kit::ListView>(object_)) model_ = new ListModel(list, this);
}

ViewProxy::~ViewProxy() {
  if (observable_) observable_->removeObserver(token_);
}

void ViewProxy::scheduleChanged() {
  if (changePending_) return;
  changePending_ = true;
  // Dropped with the proxy, should it go first.
  QMetaObject::invokeMethod(
      this,
      [this] {
        changePending_ = false;
        emit changed();
      },
      Qt::QueuedConnection);
}

bool ViewProxy::hidden() const {
  auto* v = as<kit::View>(object_);
  return v && v->isHidden();
}
double ViewProxy::alpha() const {
  auto* v = as<kit::View>(object_);
  return v ? v->alpha() : 1.0;
}
bool ViewProxy::enabled() const {
  auto* c = as<kit::Control>(object_);
  return !c || c->isEnabled();
}
bool ViewProxy::selected() const {
  if (auto* c = as<kit::Control>(object_)) return c->isSelected();
  if (auto* cell = as<kit::ListCell>(object_)) return cell->isCellSelected();
  return false;
}
bool ViewProxy::interactive() const {
  auto* v = as<kit::View>(object_);
  return v && v->isUserInteractionEnabled();
}
QString ViewProxy::text() const {
  if (auto* l = as<kit::Label>(object_)) return qs(l->text());
  if (auto* f = as<kit::TextField>(object_)) return qs(f->text());
  if (auto* s = as<kit::SearchBar>(object_)) return QString::fromStdString(s->text());
  return {};
}
QString ViewProxy::placeholder() const {
  if (auto* f = as<kit::TextField>(object_)) return qs(f->placeholder());
  if (auto* s = as<kit::SearchBar>(object_)) return QString::fromStdString(s->placeholder());
  return {};
}
QString ViewProxy::title() const {
  auto* b = as<kit::Button>(object_);
  return b ? qs(b->currentTitle()) : QString();
}
QString ViewProxy::image() const {
  if (auto* i = as<kit::ImageView>(object_)) return ImageRegistry::shared().urlFor(i->image());
  if (auto* b = as<kit::Button>(object_)) return ImageRegistry::shared().urlFor(b->currentImage());
  return {};
}
QString ViewProxy::backgroundImage() const {
  auto* b = as<kit::Button>(object_);
  return b ? ImageRegistry::shared().urlFor(b->backgroundImage(kit::kControlStateNormal)) : QString();
}
QColor ViewProxy::backgroundColor() const {
  auto* v = as<kit::View>(object_);
  return v ? qc(v->backgroundColor()) : QColor(Qt::transparent);
}
QColor ViewProxy::tintColor() const {
  auto* v = as<kit::View>(object_);
  return v ? qc(v->tintColor(), QColor("#2485EF")) : QColor("#2485EF");
}
QColor ViewProxy::textColor() const {
  if (auto* l = as<kit::Label>(object_)) return qc(l->textColor(), Qt::black);
  if (auto* f = as<kit::TextField>(object_)) return qc(f->textColor(), Qt::black);
  if (auto* b = as<kit::Button>(object_)) return qc(b->currentTitleColor(), QColor("#2485EF"));
  return Qt::black;
}
QColor ViewProxy::borderColor() const {
  auto* v = as<kit::View>(object_);
  return v ? qc(v->borderColor(), Qt::black) : QColor(Qt::black);
}
double ViewProxy::borderWidth() const {
  auto* v = as<kit::View>(object_);
  return v ? v->borderWidth() : 0;
}
double ViewProxy::cornerRadius() const {
  auto* v = as<kit::View>(object_);
  if (!v) return 0;
  return v->maskedCorners() ? v->maskCornerRadius() : v->cornerRadius();
}
double ViewProxy::scale() const {
  auto* v = as<kit::View>(object_);
  return v ? v->transform().a : 1.0;
}
QVariantMap ViewProxy::transformAnimation() const {
  auto* v = as<kit::View>(object_);
  if (!v || !v->transformAnimation()) return {{"serial", 0}};
  const kit::TransformAnimation& a = *v->transformAnimation();
  return {{"serial", a.serial},       {"fromX", a.from.tx},       {"fromY", a.from.ty},
          {"duration", a.duration},   {"delay", a.delay},         {"damping", a.damping},
          {"initialVelocity", a.initialVelocity}};
}
bool ViewProxy::on() const {
  auto* s = as<kit::Switch>(object_);
  return s && s->isOn();
}
bool ViewProxy::secure() const {
  auto* f = as<kit::TextField>(object_);
  return f && f->isSecureTextEntry();
}
int ViewProxy::numberOfLines() const {
  auto* l = as<kit::Label>(object_);
  return l ? l->numberOfLines() : 1;
}
QString ViewProxy::animationName() const {
  auto* a = as<kit::AnimationView>(object_);
  return a ? QString::fromStdString(a->animationName()) : QString();
}
bool ViewProxy::playing() const {
  auto* a = as<kit::AnimationView>(object_);
  return a && a->isAnimationPlaying();
}
bool ViewProxy::looping() const {
  auto* a = as<kit::AnimationView>(object_);
  return a && a->loopMode() != kit::LoopMode::PlayOnce;
}
double ViewProxy::constant() const {
  auto* c = as<kit::LayoutConstraint>(object_);
  return c ? c->constant() : 0;
}
QObject* ViewProxy::model() const { return model_; }

QVariantList ViewProxy::subviews() const {
  QVariantList list;
  auto* v = as<kit::View>(object_);
  if (!v) return list;
  for (const auto& sub : v->subviews()) {
    auto& proxy = children_[sub.get()];
    if (!proxy) proxy = new ViewProxy(sub, const_cast<ViewProxy*>(this));
    list.append(QVariant::fromValue<QObject*>(proxy));
  }
  return list;
}

bool ViewProxy::tap() {
  auto* v = as<kit::View>(object_);
  return v && kit::tap(*v);
}

bool ViewProxy::toggle() {
  auto* s = as<kit::Switch>(object_);
  return s && kit::toggle(*s);
}

void ViewProxy::type(const QString& text) {
  if (auto* f = as<kit::TextField>(object_)) f->typeText(text.toStdString());
  if (auto* s = as<kit::SearchBar>(object_)) s->userSetText(text.toStdString());
}

void ViewProxy::edit(const QString& text) {
  auto* f = as<kit::TextField>(object_);
  if (!f || !f->isEnabled() || f->text().value_or("") == text.toStdString()) return;
  if (!f->isFirstResponder()) f->becomeFirstResponder();
  f->setText(text.toStdString());
  f->sendActionsForControlEvents(kit::kControlEventEditingChanged);
  kit::runLayoutPass();
}

void ViewProxy::pressReturn() {
  if (auto* f = as<kit::TextField>(object_)) f->pressReturn();
  if (auto* s = as<kit::SearchBar>(object_)) s->tapSearchButton();
}

bool ViewProxy::longPress(int state, double x, double y) {
  auto* v = as<kit::View>(object_);
  if (!v) return false;
  for (auto& r : v->gestureRecognizers()) {
    if (dynamic_cast<kit::LongPressGestureRecognizer*>(r.get())) {
      return r->recognize(static_cast<kit::GestureState>(state), {x, y});
    }
  }
  return false;
}

// ---- OutletsProxy ----

OutletsProxy::OutletsProxy(std::shared_ptr<kit::ViewController> controller, QObject* parent)
    : QObject(parent), controller_(std::move(controller)), outlets_(new QQmlPropertyMap(this)) {
  controller_->loadViewIfNeeded();
  identifier_ = QString::fromStdString(controller_->storyboardIdentifier());
  kind_ = dynamic_cast<kit::AlertController*>(controller_.get()) ? "alert" : "screen";
  mirror(*controller_);
  token_ = controller_->addObserver([this](std::string_view) { emit changed(); });
}

OutletsProxy::OutletsProxy(std::shared_ptr<kit::ListCell> cell, QObject* parent)
    : QObject(parent), cell_(std::move(cell)), outlets_(new QQmlPropertyMap(this)) {
  identifier_ = QString::fromStdString(cell_->reuseIdentifier());
  kind_ = "cell";
  mirror(*cell_);
  outlets_->insert("cellView", QVariant::fromValue<QObject*>(new ViewProxy(cell_, this)));
}

void OutletsProxy::mirror(kit::OutletContainer& container) {
  for (const auto& [name, object] : container.outlets()) {
    outlets_->insert(QString::fromStdString(name), QVariant::fromValue<QObject*>(new ViewProxy(object, this)));
  }
}

QString OutletsProxy::title() const {
  return controller_ ? QString::fromStdString(controller_->title()) : QString();
}

bool OutletsProxy::invoke(const QString& name) {
  return controller_ && controller_->performAction(name.toStdString());
}

bool OutletsProxy::tap(const QString& name) {
  auto* proxy = qobject_cast<ViewProxy*>(outlet(name));
  return proxy && proxy->tap();
}

QObject* OutletsProxy::outlet(const QString& name) const { return outlets_->value(name).value<QObject*>(); }

// ---- ListModel ----

namespace {

std::vector<int> startsOf(const std::vector<int>& counts, int* total) {
  std::vector<int> starts;
  starts.reserve(counts.size());
  int flat = 0;
  for (int c : counts) {
    starts.push_back(flat);
    flat += c;
  }
  *total = flat;
  return starts;
}

}  // namespace

ListModel::ListModel(std::shared_ptr<kit::ListView> list, QObject* parent)
    : QAbstractListModel(parent), list_(std::move(list)) {
  token_ = list_->addObserver([this](std::string_view property) {
    if (property == "cells" || property == "selection") refresh();
  });
  counts_ = list_->knownCounts();
  starts_ = startsOf(counts_, &total_);
  windowFirst_ = list_->visibleFirst();
  windowEnd_ = windowFirst_ + list_->visibleCount();
}

ListModel::~ListModel() { list_->removeObserver(token_); }

void ListModel::refresh() {
  std::vector<int> counts = list_->knownCounts();
  int total = 0;
  std::vector<int> starts = startsOf(counts, &total);
  if (total > total_) {
    beginInsertRows(QModelIndex(), total_, total - 1);
    counts_ = std::move(counts);
    starts_ = std::move(starts);
    total_ = total;
    endInsertRows();
    emit countChanged();
  } else if (total < total_) {
    beginRemoveRows(QModelIndex(), total, total_ - 1);
    counts_ = std::move(counts);
    starts_ = std::move(starts);
    total_ = total;
    endRemoveRows();
    emit countChanged();
  } else {
    counts_ = std::move(counts);
    starts_ = std::move(starts);
  }
  // Rows outside the kit's window, before and after, have no cell and nothing else that changes
  // with a reload; the rows of both windows are told.
  const int first = list_->visibleFirst();
  const int end = first + list_->visibleCount();
  const int from = std::max(0, std::min(first, windowFirst_));
  const int to = std::min(total_, std::max(end, windowEnd_));
  windowFirst_ = first;
  windowEnd_ = end;
  if (from < to) emit dataChanged(index(from), index(to - 1));
}

kit::IndexPath ListModel::pathOf(int row) const {
  if (row < 0 || row >= total_) return {-1, -1};
  // The last section starting at or before `row`: the one holding it (empty sections before it
  // start at the same row).
  auto it = std::upper_bound(starts_.begin(), starts_.end(), row);
  int section = static_cast<int>(it - starts_.begin()) - 1;
  return {section, row - starts_[static_cast<std::size_t>(section)]};
}

OutletsProxy* ListModel::proxyFor(const std::shared_ptr<kit::ListCell>& cell) const {
  auto it = cells_.find(cell.get());
  if (it != cells_.end()) return it->second;
  auto* proxy = new OutletsProxy(cell, const_cast<ListModel*>(this));
  cells_[cell.get()] = proxy;
  return proxy;
}

int ListModel::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : total_; }

QVariant ListModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() < 0 || index.row() >= total_) return {};
  kit::IndexPath path = pathOf(index.row());
  switch (role) {
    case CellRole: {
      auto cell = list_->cellAtIndexPath(path);
      return QVariant::fromValue<QObject*>(cell ? proxyFor(cell) : nullptr);
    }
    case SectionRole: return path.section;
    case ItemRole: return path.row;
    case HeightRole:
      if (auto* table = dynamic_cast<kit::TableView*>(list_.get())) return table->heightForRow(path);
      if (auto* collection = dynamic_cast<kit::CollectionView*>(list_.get())) return collection->sizeForItem(path).height;
      return 44.0;
    case WidthRole:
      if (auto* collection = dynamic_cast<kit::CollectionView*>(list_.get())) return collection->sizeForItem(path).width;
      return 0.0;
    default: return {};
  }
}

QHash<int, QByteArray> ListModel::roleNames() const {
  return {{CellRole, "cell"}, {SectionRole, "section"}, {ItemRole, "item"}, {HeightRole, "itemHeight"},
          {WidthRole, "itemWidth"}};
}

void ListModel::setVisibleRange(int first, int count) { list_->setVisibleRange(first, count); }

void ListModel::select(int row) {
  kit::IndexPath path = pathOf(row);
  if (path.section < 0) return;
  if (auto* table = dynamic_cast<kit::TableView*>(list_.get())) table->userSelectRow(path);
  if (auto* collection = dynamic_cast<kit::CollectionView*>(list_.get())) collection->userSelectItem(path);
}

}  // namespace gui
