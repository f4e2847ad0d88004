// The PIN screen: title, four dots in their box, the twelve-key keypad, and the first visit's
// welcome over it. A real keyboard's digits press the keys; Backspace presses "×".
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    readonly property var keypad: o.NumberCollectionView
    background: Rectangle { color: "white" }
    focus: true

    function press(row) { if (keypad && keypad.model) keypad.model.select(row) }
    Keys.onPressed: function (event) {
        if (event.key >= Qt.Key_1 && event.key <= Qt.Key_9) press(event.key - Qt.Key_1)
        else if (event.key === Qt.Key_0) press(10)
        else if (event.key === Qt.Key_Backspace || event.key === Qt.Key_Delete) press(11)
        else if (event.key === Qt.Key_Return || event.key === Qt.Key_Enter) { }
        else return
        event.accepted = true
    }
    Component.onCompleted: forceActiveFocus()

    NavBar { id: bar; width: parent.width; backButton: o.backButton }
    KitButton {
        view: o.lockBtn
        transform: KitSpring { view: o.lockBtn }
        anchors.right: parent.right; anchors.rightMargin: 12
        anchors.verticalCenter: bar.verticalCenter
        fallbackText: "\uD83D\uDD12"
    }

    Column {
        id: head
        anchors.top: bar.bottom; anchors.topMargin: 24
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: 10
        KitLabel { view: o.pageTitle; font.pixelSize: 26; font.weight: Font.Bold; anchors.horizontalCenter: parent.horizontalCenter }
        KitLabel { view: o.passwordContent; color: Theme.secondaryText; anchors.horizontalCenter: parent.horizontalCenter }
    }

    Rectangle {
        id: box
        anchors.top: head.bottom; anchors.topMargin: 28
        anchors.horizontalCenter: parent.horizontalCenter
        width: 220; height: 64; radius: 14
        transform: KitSpring { view: o.passwordView }
        color: Theme.card
        border.width: o.passwordView ? o.passwordView.borderWidth : 0
        border.color: o.passwordView ? o.passwordView.borderColor : "transparent"
        Row {
            anchors.centerIn: parent
            spacing: 22
            Repeater {
                model: [o.dot1, o.dot2, o.dot3, o.dot4]
                delegate: Rectangle {
                    width: 18; height: 18; radius: 9
                    color: modelData && modelData.tintColor.a > 0 ? modelData.tintColor : "gray"
                }
            }
        }
    }

    GridView {
        id: grid
        anchors.top: box.bottom; anchors.topMargin: 30
        anchors.horizontalCenter: parent.horizontalCenter
        width: Math.min(parent.width - 40, 330)
        height: cellHeight * 4
        cellWidth: width / 3
        cellHeight: 76
        interactive: false
        model: page.keypad ? page.keypad.model : null
        delegate: Item {
            width: grid.cellWidth; height: grid.cellHeight
            readonly property var c: model.cell ? model.cell.outlets : ({})
            readonly property string key: c.numberCell ? c.numberCell.text : ""
            Rectangle {
                anchors.centerIn: parent
                width: 66; height: 66; radius: 33
                visible: parent.key.length > 0
                color: keyMouse.pressed ? "#DCE9FB" : Theme.card
                Text { anchors.centerIn: parent; text: key; font.pixelSize: 28; color: Theme.text }
            }
            MouseArea { id: keyMouse; anchors.fill: parent; onClicked: page.press(index) }
        }
        Component.onCompleted: if (page.keypad && page.keypad.model) page.keypad.model.setVisibleRange(0, 12)
    }

    KitButton {
        view: o.forgotButton
        anchors.top: grid.bottom; anchors.topMargin: 8
        anchors.horizontalCenter: parent.horizontalCenter
        fontSize: 15
    }

    BannerSlot {
        view: o.adsView
        heightConstraint: o.adHeightConstraint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }

    // The first visit's welcome.
    Rectangle {
        anchors.fill: parent
        visible: !!o.firstTimeView && !o.firstTimeView.hidden
        color: "white"
        MouseArea { anchors.fill: parent }
        Column {
            anchors.centerIn: parent
            width: parent.width - 2 * Theme.margin
            spacing: 18
            Image { source: "image://kit/named/vault"; width: 120; height: 120; anchors.horizontalCenter: parent.horizontalCenter; fillMode: Image.PreserveAspectFit }
            KitLabel { view: o.welcomeTitle; font.pixelSize: 26; font.weight: Font.Bold; anchors.horizontalCenter: parent.horizontalCenter }
            KitLabel { view: o.welcomeMessage; width: parent.width; wrapMode: Text.WordWrap; horizontalAlignment: Text.AlignHCenter; color: Theme.secondaryText }
            KitButton { view: o.createPin; filled: true; width: parent.width; height: 52 }
            KitButton { view: o.skipButton; width: parent.width }
        }
    }
}
