// A presented alert or action sheet, with its actions in order.
import QtQuick
import "components"

Rectangle {
    id: root
    property var screen
    readonly property var info: screen ? app.alertInfo(screen) : ({})
    color: "#66000000"
    MouseArea { anchors.fill: parent }
    Rectangle {
        width: parent.width - (root.info.actionSheet ? 16 : 70)
        height: body.implicitHeight + 20
        radius: 14
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.verticalCenter: root.info.actionSheet ? undefined : parent.verticalCenter
        anchors.bottom: root.info.actionSheet ? parent.bottom : undefined
        anchors.bottomMargin: 16
        Column {
            id: body
            width: parent.width
            anchors.top: parent.top
            anchors.topMargin: 16
            spacing: 10
            Text {
                width: parent.width - 32; anchors.horizontalCenter: parent.horizontalCenter
                text: root.info.title || ""; visible: text.length > 0; wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter; font.pixelSize: 17; font.weight: Font.Bold
            }
            Text {
                width: parent.width - 32; anchors.horizontalCenter: parent.horizontalCenter
                text: root.info.message || ""; visible: text.length > 0; wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter; font.pixelSize: 14; color: Theme.secondaryText
            }
            Repeater {
                model: root.info.actions || []
                delegate: Rectangle {
                    width: body.width; height: 46; color: "white"
                    Rectangle { width: parent.width; height: 1; color: "#DDDDDD" }
                    Text {
                        anchors.centerIn: parent; text: modelData.title
                        color: modelData.style === 2 ? "#E5352B" : Theme.accent
                        font.pixelSize: 17; font.weight: modelData.style === 1 ? Font.DemiBold : Font.Normal
                    }
                    MouseArea { anchors.fill: parent; enabled: modelData.enabled; onClicked: app.chooseAlertAction(root.screen, index) }
                }
            }
        }
    }
}
