// An assistant's whole conversation with a running Tovren, through a stdio bridge, with the
// official MCP client. Usage: node assistant.mjs <port> <day YYYY-MM-DD> <bridge command...>
// The bridge runs with TOVREN_MCP_PORT set to the port. Exits 0 when every step held.

import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport, getDefaultEnvironment } from '@modelcontextprotocol/sdk/client/stdio.js';

const [port, day, command, ...bridgeArgs] = process.argv.slice(2);
if (!port || !day || !command) {
    console.error('usage: node assistant.mjs <port> <day> <bridge command...>');
    process.exit(2);
}
const args = bridgeArgs.map((a) => a.replaceAll('{port}', port));

let step = 'starting';
const fail = (message) => {
    console.error(`FAILED at "${step}": ${message}`);
    process.exit(1);
};
const expect = (condition, message) => {
    if (!condition)
        fail(message);
};
const text = (result) => result.content.map((c) => c.text).join('');
const withTimeout = (promise, ms = 15000) =>
    Promise.race([promise, new Promise((_, reject) => setTimeout(() => reject(new Error(`no answer in ${ms} ms`)), ms))]);

const transport = new StdioClientTransport({
    command,
    args,
    env: { ...getDefaultEnvironment(), TOVREN_MCP_PORT: port },
    stderr: 'inherit',
});
const client = new Client({ name: 'tovren-e2e', version: '1.0.0' });
// What the client could not read from the listener; reported, not fatal.
const clientErrors = [];
client.onerror = (error) => clientErrors.push(String(error?.message ?? error));

try {
    step = 'connect';
    await withTimeout(client.connect(transport));
    expect(client.getServerVersion()?.name === 'tovren', `server info ${JSON.stringify(client.getServerVersion())}`);

    step = 'list tools';
    const { tools } = await withTimeout(client.listTools());
    const names = tools.map((t) => t.name);
    for (const name of ['get_entries', 'get_journal_template', 'add_journal_entry', 'update_journal_entry'])
        expect(names.includes(name), `${name} missing from ${names.join(', ')}`);
    const add = tools.find((t) => t.name === 'add_journal_entry');
    expect(add.description.includes('This journal is organised under: Yesterday, Today, Blockers.'),
        `add_journal_entry does not name the sections: ${add.description}`);

    step = 'read the template';
    const template = text(await withTimeout(client.callTool({ name: 'get_journal_template', arguments: {} })));
    expect(template.startsWith('Template sections, in order:\n## Yesterday\n## Today\n## Blockers'), template);

    step = 'add under a section';
    const line = `Paired on the importer via ${command}.`;
    const added = text(await withTimeout(client.callTool({
        name: 'add_journal_entry', arguments: { content: line, section: 'Today', date: day } })));
    expect(added.startsWith('Added to journal for ') && added.endsWith(' under Today.'), added);

    step = 'read back';
    const read = text(await withTimeout(client.callTool({ name: 'get_entries', arguments: { from: day, to: day } })));
    const dayText = read.slice(read.indexOf('\n\n') + 2);
    expect(dayText === `## Yesterday\n\n## Today\n${line}\n\n## Blockers`, JSON.stringify(read));

    step = 'update with expected_current';
    const tidied = `## Today\n\n${line} #importer`;
    const updated = text(await withTimeout(client.callTool({
        name: 'update_journal_entry', arguments: { content: tidied, expected_current: dayText, date: day } })));
    expect(updated.startsWith('Updated the entry for '), updated);

    step = 'refused on a stale expected_current';
    let refusal = null;
    try {
        await withTimeout(client.callTool({
            name: 'update_journal_entry', arguments: { content: 'Overwritten.', expected_current: dayText, date: day } }));
    } catch (error) {
        refusal = error;
    }
    expect(refusal !== null, 'the stale write was accepted');
    expect(refusal.code === -32602 && refusal.message.includes(
        'That day has changed since you read it, so nothing was written.'), `refused with ${refusal.code} ${refusal.message}`);

    step = 'the day kept the update';
    const after = text(await withTimeout(client.callTool({ name: 'get_entries', arguments: { from: day, to: day } })));
    expect(after.endsWith(`\n\n${tidied}`), JSON.stringify(after));

    step = 'close';
    await withTimeout(client.close(), 10000);
} catch (error) {
    fail(error?.stack ?? String(error));
}
if (clientErrors.length > 0)
    console.log(`The client reported ${clientErrors.length} unreadable message(s): ${[...new Set(clientErrors)].join('; ')}`);
console.log(`ok: ${command} ${args.join(' ')}`);
process.exit(0);
