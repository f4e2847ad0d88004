// A text field outlet: the kit's text and placeholder; the keyboard's edits go back to the kit
// as a person's typing.
import QtQuick
import QtQuick.Controls

TextField {
    id: field
    property var view
    visible: !!view && !view.hidden
    text: view ? view.text : ""
    placeholderText: view ? view.placeholder : ""
    echoMode: view && view.secure ? TextInput.Password : TextInput.Normal
    font.pixelSize: 16
    leftPadding: 14
    color: view && view.textColor.a > 0 ? view.textColor : Theme.text
    background: Rectangle {
        radius: 12
        color: "white"
        border.width: field.activeFocus ? 2 : 1
        border.color: field.activeFocus ? Theme.accent : "#D0D5DD"
    }
    onTextEdited: if (view) view.edit(text)
    onAccepted: if (view) view.pressReturn()
}
