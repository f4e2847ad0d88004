// A table outlet: one delegate per row, made from the row's cell; the rows the list shows are
// reported to the kit, which asks its data source for their cells.
import QtQuick

ListView {
    id: list
    property var view
    property Component cellDelegate
    visible: !!view && !view.hidden
    clip: true
    model: view ? view.model : null
    delegate: Loader {
        width: list.width
        height: itemHeight
        property var cell: model.cell
        property int rowIndex: index
        sourceComponent: list.cellDelegate
    }
    function reportWindow() {
        if (!view || !view.model) return
        var first = Math.max(0, indexAt(0, contentY))
        var last = indexAt(0, contentY + height - 1)
        if (last < 0) last = count - 1
        view.model.setVisibleRange(first, Math.max(1, last - first + 2))
    }
    onContentYChanged: reportWindow()
    onHeightChanged: reportWindow()
    onCountChanged: reportWindow()
}
