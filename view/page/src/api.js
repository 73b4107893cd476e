// The server's side: one function for each thing that it can be asked.
import { Told } from "./dom.js";

/** What the server refuses, in its own words. */
export class Refused extends Told {}

/** @param {Response} answer */
async function refusal(answer) {
    const said = await answer.json().catch(() => ({}));
    if (said.error) {
        return said.error;
    }
    // Whom the door keeps out gets no JSON: the cookie is another server's.
    return answer.status === 403 ? "nq360 view has begun anew: open the address that it prints" :
        `The server answers ${answer.status}`;
}

/**
 * @param {string} path
 * @param {RequestInit} [options]
 */
async function ask(path, options) {
    const answer = await fetch(path, options).catch(() => {
        throw new Told("The server does not answer. When nq360 view runs again, open the address that it prints");
    });
    if (!answer.ok) {
        throw new Refused(await refusal(answer));
    }
    return answer;
}

/**
 * @param {string} method
 * @param {string} path
 * @param {object} body
 * @param {RequestInit} [options]
 */
async function send(method, path, body, options) {
    const headers = { "Content-Type": "application/json" };
    return (await ask(path, { method, body: JSON.stringify(body), headers, ...options })).json();
}

/**
 * @typedef {{id: string, kind: "pair"|"panorama"|"lone"|"other", files: string[], type: "picture"|"movie",
 *            width: number, height: number, seconds: number|null, frames: number|null, date: string, source: string,
 *            is360: boolean, damaged: boolean, why: string, version: string,
 *            adjustments: Record<string, string>}} Shot
 * @typedef {{folder: string, made: string, readOnly: boolean, strips: string[], shots: Shot[], pending: number, error: string}} Listing
 * @typedef {{id?: number, state: string, subject: string, name: string, frames?: number, frame_count?: number,
 *            seconds?: number, message?: string}} ExportEvent
 */

/** @returns {Promise<Listing>} */
export const listShots = async () => (await ask("/api/shots")).json();

/** @param {Shot} shot */
export const thumbnailAddress = (shot) =>
    `/api/thumbnail?${new URLSearchParams({ file: shot.files[0], version: shot.version })}`;

/**
 * The version makes it another address for the browser when the file has been replaced.
 * @param {Shot} shot
 */
export const fileAddress = (shot) =>
    `/files/${encodeURIComponent(shot.files[0])}?${new URLSearchParams({ version: shot.version })}`;

/**
 * @param {Shot} shot
 * @param {Record<string, string>} look
 * @param {number} width
 * @param {number} start seconds
 */
export async function preview(shot, look, width, start) {
    const query = new URLSearchParams({ ...look, shot: shot.id, width: String(width), start: String(start) });
    return (await ask(`/api/preview?${query}`)).blob();
}

/**
 * @param {Shot} shot
 * @param {Record<string, string>} adjustments
 * @returns {Promise<{adjustments: Record<string, string>, words: string, warning: string}>}
 */
export const match = (shot, adjustments) => send("POST", "/api/match", { shot: shot.id, adjustments });

/**
 * Arrives even when the page is left at once.
 * @param {string} shot
 * @param {Record<string, string>} adjustments
 */
export const keep = (shot, adjustments) =>
    send("PUT", "/api/adjustments", { shot, adjustments }, { keepalive: true });

/**
 * @param {object} order
 * @returns {Promise<{id: number, name: string}>}
 */
export const addExport = (order) => send("POST", "/api/exports", order);

/** @returns {Promise<{exports: ExportEvent[]}>} */
export const listExports = async () => (await ask("/api/exports")).json();

/** @param {number} id */
export const cancelExport = (id) => ask(`/api/exports/${id}`, { method: "DELETE" });

/**
 * @param {Shot} shot
 * @returns {Promise<{free: number, needed: number}>}
 */
export const space = async (shot) => (await ask(`/api/space?${new URLSearchParams({ shot: shot.id })}`)).json();
