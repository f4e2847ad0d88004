// A collection outlet shown as a horizontal strip.
import QtQuick

ListView {
    id: strip
    property var view
    property Component itemDelegate
    orientation: ListView.Horizontal
    spacing: 1
    clip: true
    reuseItems: true
    visible: !!view && !view.hidden
    model: view ? view.model : null
    delegate: Loader {
        width: itemWidth > 0 ? itemWidth : strip.height
        height: strip.height
        property var cell: model.cell
        property int itemIndex: index
        property var listModel: strip.model
        sourceComponent: strip.itemDelegate
    }
    function reportWindow() {
        if (!view || !view.model) return
        var first = Math.max(0, indexAt(contentX, 0))
        view.model.setVisibleRange(first, Math.max(4, Math.ceil(width / 90) + 2))
    }
    onContentXChanged: reportWindow()
    onWidthChanged: reportWindow()
    onCountChanged: reportWindow()
}
