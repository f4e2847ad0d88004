// A plain view outlet used as a panel: visibility, background and border from the kit.
import QtQuick

Rectangle {
    property var view
    visible: !!view && !view.hidden
    color: view && view.backgroundColor.a > 0 ? view.backgroundColor : "transparent"
    radius: view ? view.cornerRadius : 0
    border.width: view ? view.borderWidth : 0
    border.color: view ? view.borderColor : "transparent"
    opacity: view ? view.alpha : 1
}
