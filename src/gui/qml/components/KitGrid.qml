// A collection outlet shown as a grid of three columns, scrolling down. Only the cells in
// view are asked of the list (the window is reported as the grid scrolls).
import QtQuick

GridView {
    id: grid
    property var view
    property Component itemDelegate
    readonly property int columns: 3
    cellWidth: Math.floor(width / columns)
    cellHeight: cellWidth
    clip: true
    reuseItems: true
    visible: !!view && !view.hidden
    interactive: !view || view.interactive
    model: view ? view.model : null
    delegate: Loader {
        width: grid.cellWidth
        height: grid.cellHeight
        property var cell: model.cell
        property int itemIndex: index
        property var listModel: grid.model
        sourceComponent: grid.itemDelegate
    }
    function reportWindow() {
        if (!view || !view.model) return
        var first = Math.max(0, indexAt(1, contentY + 1))
        first -= first % columns
        var rows = Math.ceil(height / Math.max(1, cellHeight)) + 1
        view.model.setVisibleRange(first, rows * columns)
    }
    onContentYChanged: reportWindow()
    onHeightChanged: reportWindow()
    onWidthChanged: reportWindow()
    onCountChanged: reportWindow()
    // A long press on the grid's background, under every item: reported at a point outside
    // every item (a press on an item goes to the item's own view).
    MouseArea {
        anchors.fill: parent
        z: -1
        pressAndHoldInterval: 200
        onPressAndHold: {
            if (!grid.view) return
            grid.view.longPress(1, -1, -1)
            grid.view.longPress(3, -1, -1)
        }
    }
}
