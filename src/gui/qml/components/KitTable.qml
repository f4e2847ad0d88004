// A table outlet: one delegate per row, made from the row's cell; the rows the list shows, and
// one more on either side, are reported to the kit, which asks its data source for their cells.
// A hidden table shows no rows, so the kit asks for none.
import QtQuick

ListView {
    id: list
    property var view
    property Component cellDelegate
    // The smallest row height seen: bounds the window while rows are not laid out yet.
    property real smallestRow: 44
    visible: !!view && !view.hidden
    clip: true
    reuseItems: true
    model: view ? view.model : null
    delegate: Loader {
        width: list.width
        height: itemHeight
        property var cell: model.cell
        property int rowIndex: index
        sourceComponent: list.cellDelegate
        onHeightChanged: if (height > 0 && height < list.smallestRow) list.smallestRow = height
    }
    function reportWindow() {
        if (!view || !view.model) return
        if (!visible || height <= 0 || count === 0) {
            view.model.setVisibleRange(0, 0)
            return
        }
        var first = indexAt(0, contentY)
        if (first < 0) first = contentY <= 0 ? 0 : Math.min(count - 1, Math.floor(contentY / smallestRow))
        var last = indexAt(0, contentY + height - 1)
        if (last < 0) last = first + Math.ceil(height / smallestRow)
        first = Math.max(0, first - 1)
        last = Math.min(count - 1, last + 1)
        view.model.setVisibleRange(first, last - first + 1)
    }
    onContentYChanged: reportWindow()
    onHeightChanged: reportWindow()
    onCountChanged: reportWindow()
    onVisibleChanged: reportWindow()
}
