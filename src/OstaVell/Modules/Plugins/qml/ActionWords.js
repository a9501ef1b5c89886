.pragma library

// The words for the action plane's enumerations, which travel by their case names.

function effect(name) {
    switch (name) {
    case "readOnly": return "Read only"
    case "localChange": return "Changes things on this computer"
    case "externalChange": return "Changes things beyond this computer"
    case "": return "Channel"
    default: return name
    }
}

function phase(name) {
    switch (name) {
    case "waitingReview": return "Waiting for review"
    case "running": return "Running"
    case "cancelling": return "Cancelling"
    case "succeeded": return "Succeeded"
    case "failed": return "Failed"
    case "cancelled": return "Cancelled"
    case "interrupted": return "Interrupted"
    default: return name
    }
}

// What a run in review warns of, by its action's effect; nothing for an action that only reads.
function warning(effect) {
    switch (effect) {
    case "localChange": return "This action changes things on this computer. Undo is not provided by this action."
    case "externalChange": return "This action changes things beyond this computer. Undo is not provided by this action."
    default: return ""
    }
}
