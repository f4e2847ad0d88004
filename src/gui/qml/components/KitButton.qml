// A button outlet: title or image from the kit, taps go back to it.
import QtQuick

Rectangle {
    id: root
    property var view
    property string fallbackText: ""
    property bool filled: false
    property int fontSize: 16
    visible: !!view && !view.hidden
    implicitWidth: Math.max(44, label.implicitWidth + 28)
    implicitHeight: 44
    radius: view && view.cornerRadius > 0 ? view.cornerRadius : (filled ? 12 : 0)
    color: filled ? (view && view.enabled ? Theme.accent : "#9DBFEA") : (view && view.backgroundColor.a > 0 ? view.backgroundColor : "transparent")
    border.width: view ? view.borderWidth : 0
    border.color: view ? view.borderColor : "transparent"
    opacity: view && !view.enabled && !filled ? 0.5 : 1

    Row {
        anchors.centerIn: parent
        spacing: 6
        Image {
            id: icon
            source: root.view ? root.view.image : ""
            visible: source != ""
            width: 24; height: 24
            sourceSize: Qt.size(48, 48)
            fillMode: Image.PreserveAspectFit
            anchors.verticalCenter: parent.verticalCenter
        }
        Text {
            id: label
            text: root.view && root.view.title.length > 0 ? root.view.title : (icon.visible ? "" : root.fallbackText)
            visible: text.length > 0
            color: root.filled ? "white" : Theme.accent
            font.pixelSize: root.fontSize
            font.weight: Font.DemiBold
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    MouseArea {
        anchors.fill: parent
        enabled: !!root.view && root.view.enabled && root.view.interactive
        onClicked: root.view.tap()
    }
}
