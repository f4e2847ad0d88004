// The splash: the app's name on the accent colour while the launch counts down.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle {
        gradient: Gradient {
            GradientStop { position: 0.0; color: Theme.accent }
            GradientStop { position: 1.0; color: "#1259B0" }
        }
    }
    Column {
        anchors.centerIn: parent
        spacing: 18
        Rectangle {
            width: 112; height: 112; radius: 28
            anchors.horizontalCenter: parent.horizontalCenter
            color: "white"
            Grid {
                anchors.centerIn: parent
                columns: 2; spacing: 8
                Repeater {
                    model: 4
                    Rectangle {
                        width: 30; height: 30; radius: 8
                        color: index === 3 ? "#9DBFEA" : Theme.accent
                    }
                }
            }
        }
        KitLabel {
            view: o.appNameLbl
            anchors.horizontalCenter: parent.horizontalCenter
            color: "white"
            font.pixelSize: 34
            font.weight: Font.Bold
        }
    }
}
