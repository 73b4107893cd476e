// Elements in a few words, and words in them.

/**
 * @template {HTMLElement} T
 * @param {string} id
 * @param {new () => T} kind
 * @returns {T}
 */
export function byId(id, kind) {
    const found = document.getElementById(id);
    if (!(found instanceof kind)) {
        throw new Error(`the page has no ${id}`);
    }
    return found;
}

/**
 * @template {keyof HTMLElementTagNameMap} K
 * @param {K} name
 * @param {Record<string, any>} [properties]
 * @param {...(Node|string)} children
 * @returns {HTMLElementTagNameMap[K]}
 */
export function make(name, properties = {}, ...children) {
    const element = document.createElement(name);
    Object.assign(element, properties);
    element.append(...children);
    return element;
}

/**
 * Sets a text, but not to what it is already: a screen reader would say it again.
 * @param {HTMLElement} place
 * @param {string} text
 */
export function say(place, text) {
    if (place.textContent !== text) {
        place.textContent = text;
    }
}

/** What has a message for a person. */
export class Told extends Error {}

/** @param {unknown} error */
export function wordsOf(error) {
    if (error instanceof Told) {
        return error.message;
    }
    console.error(error);
    return "Something is wrong with this page; the browser's console tells what";
}

/** @param {number} seconds */
export function clock(seconds) {
    const whole = Math.floor(seconds);
    const parts = [Math.floor(whole / 3600), Math.floor(whole / 60) % 60, whole % 60];
    const shown = parts[0] > 0 ? parts : parts.slice(1);
    return shown.map((part, at) => (at > 0 ? String(part).padStart(2, "0") : part)).join(":");
}

/** @param {number} bytes */
export function size(bytes) {
    const units = ["bytes", "KiB", "MiB", "GiB", "TiB"];
    let unit = 0;
    for (; bytes >= 1024 && unit + 1 < units.length; ++unit) {
        bytes /= 1024;
    }
    return `${bytes.toFixed(unit === 0 ? 0 : 1)} ${units[unit]}`;
}
