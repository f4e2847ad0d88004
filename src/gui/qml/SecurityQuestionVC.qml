// The security question: a drop-down of questions, the answer and the confirm button.
import QtQuick
import QtQuick.Controls
import "components"

Page {
    id: page
    property var screen
    readonly property var o: screen ? screen.outlets : ({})
    background: Rectangle { color: "white" }

    NavBar { id: bar; width: parent.width; backButton: o.backButton; titleLabel: o.titleLbl }

    Column {
        anchors.top: bar.bottom; anchors.topMargin: 24
        anchors.left: parent.left; anchors.right: parent.right
        anchors.leftMargin: Theme.margin; anchors.rightMargin: Theme.margin
        spacing: 12
        KitLabel { view: o.questionLbl; font.weight: Font.DemiBold }
        KitDropDown { view: o.dropDown; width: parent.width; z: 2 }
        Item { width: 1; height: 8 }
        KitLabel { view: o.answerLbl; font.weight: Font.DemiBold }
        KitTextField { view: o.answer; width: parent.width; height: 48 }
        Item { width: 1; height: 16 }
        Rectangle {
            width: parent.width; height: 52; radius: 14
            visible: !!o.confirmBtnColor && !o.confirmBtnColor.hidden
            color: o.confirmBtnColor && o.confirmBtnColor.backgroundColor.a > 0 ? o.confirmBtnColor.backgroundColor : "gray"
            Text { anchors.centerIn: parent; text: o.confirmBtnColor ? o.confirmBtnColor.title : ""; color: "white"; font.pixelSize: 17; font.weight: Font.DemiBold }
            MouseArea { anchors.fill: parent; onClicked: o.confirmBtnColor.tap() }
        }
    }

    BannerSlot {
        view: o.adsView
        heightConstraint: o.adHeightConstraint
        anchors.left: parent.left; anchors.right: parent.right
        anchors.bottom: parent.bottom
    }
}
