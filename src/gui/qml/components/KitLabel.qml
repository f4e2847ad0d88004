// A label outlet: text, colour and visibility from the kit.
import QtQuick

Text {
    property var view
    visible: !!view && !view.hidden
    text: view ? view.text : ""
    color: view && view.textColor.a > 0 ? view.textColor : Theme.text
    opacity: view ? view.alpha : 1
    wrapMode: view && view.numberOfLines !== 1 ? Text.WordWrap : Text.NoWrap
    elide: view && view.numberOfLines === 1 ? Text.ElideRight : Text.ElideNone
    font.pixelSize: 16
}
