// The bar at the top of a screen: a back button, a title and an optional right-hand button.
import QtQuick

Item {
    id: bar
    property var backButton
    property var titleLabel
    property string fallbackTitle: ""
    property var rightButton
    height: 52
    KitButton {
        id: back
        view: bar.backButton
        fallbackText: "\u2039 Back"
        anchors.left: parent.left
        anchors.leftMargin: 4
        anchors.verticalCenter: parent.verticalCenter
    }
    Text {
        anchors.centerIn: parent
        text: bar.titleLabel && bar.titleLabel.text.length > 0 ? bar.titleLabel.text : bar.fallbackTitle
        font.pixelSize: 18
        font.weight: Font.Bold
        color: Theme.text
    }
    KitButton {
        view: bar.rightButton
        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.verticalCenter: parent.verticalCenter
        fontSize: 14
    }
}
