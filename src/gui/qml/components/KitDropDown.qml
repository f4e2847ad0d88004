// A drop-down outlet: the chosen option in a field; a touch goes to the kit, and while the
// kit's list is open its options show in a pop-up under the field.
import QtQuick
import QtQuick.Controls

Rectangle {
    id: root
    property var view
    // The list of option buttons (the drop-down's first subview).
    readonly property var list: view && view.subviews.length > 0 ? view.subviews[0] : null
    visible: !!view && !view.hidden
    implicitHeight: 48
    radius: 12
    color: view && view.backgroundColor.a > 0 ? view.backgroundColor : Theme.accent
    Text {
        anchors.left: parent.left; anchors.leftMargin: 14
        anchors.right: arrow.left; anchors.rightMargin: 8
        anchors.verticalCenter: parent.verticalCenter
        text: root.view ? (root.view.text.length > 0 ? root.view.text : root.view.placeholder) : ""
        color: "white"
        opacity: root.view && root.view.text.length > 0 ? 1 : 0.8
        font.pixelSize: 15
        elide: Text.ElideRight
    }
    Text {
        id: arrow
        anchors.right: parent.right; anchors.rightMargin: 14
        anchors.verticalCenter: parent.verticalCenter
        text: popup.opened ? "\u25B2" : "\u25BC"
        color: "white"
        font.pixelSize: 12
    }
    MouseArea { anchors.fill: parent; onClicked: if (root.view) root.view.tap() }
    Popup {
        id: popup
        y: root.height + 4
        width: root.width
        padding: 0
        visible: !!root.list && !root.list.hidden
        closePolicy: Popup.NoAutoClose
        background: Rectangle { radius: 12; color: "white"; border.color: "#D0D5DD" }
        contentItem: Column {
            Repeater {
                model: root.list ? root.list.subviews : []
                delegate: Rectangle {
                    width: popup.width
                    height: 44
                    radius: 12
                    color: modelData.selected ? Theme.accent : (rowMouse.pressed ? "#DCE9FB" : "transparent")
                    Text {
                        anchors.left: parent.left; anchors.leftMargin: 14
                        anchors.right: parent.right; anchors.rightMargin: 14
                        anchors.verticalCenter: parent.verticalCenter
                        text: modelData.title
                        color: modelData.selected ? "white" : Theme.text
                        font.pixelSize: 15
                        elide: Text.ElideRight
                    }
                    MouseArea { id: rowMouse; anchors.fill: parent; onClicked: modelData.tap() }
                }
            }
        }
    }
}
