// Plays a web page on the page module: registers under the uid given, reports
// RUNNING, logs the server's calls to stdout, and leaves when terminated.
// Uses node's own WebSocket client, as a browser would use its own.
import { VelmoraApp, uidFromParameters } from '../../../sdk/velmora-app.mjs';

const [port, parameters] = process.argv.slice(2);
const app = new VelmoraApp({ url: `ws://127.0.0.1:${port}/`, uid: uidFromParameters(parameters, process.pid) });
app.onFocus = (focus) => console.log(`focus ${focus}`);
app.onTerminate = () => {
  console.log('terminate');
  app.reportState('TERMINATED');
  setTimeout(() => { app.close(); process.exit(0); }, 100);
};
try {
  await app.connect();
  await app.call('RPC.ping').then((pong) => console.log(`ping ${pong}`));
  await app.call('INone.method').catch((error) => console.log(`error ${error.message}`));
  app.reportState('RUNNING');
  app.keepAlive();
} catch (error) {
  console.error(`page: ${error.message}`);
  process.exit(2);
}
