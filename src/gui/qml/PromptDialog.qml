// A question of the platform (photo access, deletion), shown over everything until answered.
import QtQuick
import "components"

Rectangle {
    anchors.fill: parent
    visible: app.prompt.active === true
    color: "#66000000"
    MouseArea { anchors.fill: parent }
    Rectangle {
        anchors.centerIn: parent
        width: parent.width - 70
        height: content.implicitHeight + 24
        radius: 14
        color: "white"
        Column {
            id: content
            width: parent.width
            anchors.top: parent.top
            anchors.topMargin: 20
            spacing: 12
            Text {
                width: parent.width - 32; anchors.horizontalCenter: parent.horizontalCenter
                text: app.prompt.title || ""; wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter; font.pixelSize: 17; font.weight: Font.Bold
            }
            Text {
                width: parent.width - 32; anchors.horizontalCenter: parent.horizontalCenter
                text: app.prompt.message || ""; visible: text.length > 0; wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter; font.pixelSize: 14; color: Theme.secondaryText
            }
            Repeater {
                model: app.prompt.buttons || []
                delegate: Rectangle {
                    width: content.width; height: 46
                    color: mouse.pressed ? "#EEEEEE" : "white"
                    Rectangle { width: parent.width; height: 1; color: "#DDDDDD" }
                    Text {
                        anchors.centerIn: parent; text: modelData
                        color: Theme.accent; font.pixelSize: 17
                        font.weight: index === 0 ? Font.Normal : Font.DemiBold
                    }
                    MouseArea { id: mouse; anchors.fill: parent; onClicked: app.answerPrompt(index) }
                }
            }
        }
    }
}
