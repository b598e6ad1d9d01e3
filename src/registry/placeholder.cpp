// Replaced when the room is built.
