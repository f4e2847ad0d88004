// A screen's banner slot: as high as its height constraint, showing the banner the kit put
// into it (a house ad's creative).
import QtQuick

Rectangle {
    id: slot
    property var view
    property var heightConstraint
    height: heightConstraint ? heightConstraint.constant : 0
    visible: height > 0 && !!view && !view.hidden
    color: "#EEF3FA"
    clip: true
    Repeater {
        model: slot.view ? slot.view.subviews : []
        delegate: Item {
            anchors.fill: parent
            visible: !modelData.hidden
            Repeater {
                model: modelData.subviews
                delegate: Image {
                    anchors.fill: parent
                    visible: modelData.kind === "ImageView"
                    source: modelData.image
                    fillMode: Image.PreserveAspectFit
                }
            }
            Text {
                anchors.right: parent.right; anchors.top: parent.top; anchors.margins: 2
                text: "Ad"; font.pixelSize: 9; color: "#888"
            }
        }
    }
}
