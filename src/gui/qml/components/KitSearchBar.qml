// A search bar outlet: the kit's text and placeholder; each edit goes to the kit as the
// person's typing.
import QtQuick
import QtQuick.Controls

TextField {
    id: field
    property var view
    visible: !!view && !view.hidden
    text: view ? view.text : ""
    placeholderText: view ? view.placeholder : ""
    font.pixelSize: 16
    leftPadding: 14
    background: Rectangle { radius: 10; color: "#F0F1F4" }
    onTextEdited: if (view) view.type(text)
    onAccepted: if (view) view.pressReturn()
}
